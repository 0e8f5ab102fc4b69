<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR" sourcelanguage="en_US">
<context>
    <name>NText</name>
    <message>
        <!-- resource text 1 -->
        <source>On</source>
        <translation>Activé</translation>
    </message>
    <message>
        <!-- resource text 2 -->
        <source>Off</source>
        <translation>Désactivé</translation>
    </message>
    <message>
        <!-- resource text 3 -->
        <source>Yes</source>
        <translation>Oui</translation>
    </message>
    <message>
        <!-- resource text 4 -->
        <source>No</source>
        <translation>Non</translation>
    </message>
    <message>
        <!-- resource text 5 -->
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <!-- resource text 6 -->
        <source>Warning</source>
        <translation>Avertissement</translation>
    </message>
    <message>
        <!-- resource text 7 -->
        <source>Error</source>
        <translation>Erreur</translation>
    </message>
    <message>
        <!-- resource text 8 -->
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <!-- resource text 9 -->
        <source>Reserved</source>
        <translation>Réservé</translation>
    </message>
    <message>
        <!-- resource text 10 -->
        <source>Failed</source>
        <translation>Échec</translation>
    </message>
    <message>
        <!-- resource text 11 -->
        <source>Auto Detect</source>
        <translation>Détection automatique</translation>
    </message>
    <message>
        <!-- resource text 12 -->
        <source>N/A</source>
        <translation>N/D</translation>
    </message>
    <message>
        <!-- resource text 13 -->
        <source>Unknown</source>
        <translation>Inconnu</translation>
    </message>
    <message>
        <!-- resource text 14 -->
        <source>Detected</source>
        <translation>Détecté</translation>
    </message>
    <message>
        <!-- resource text 15 -->
        <source>Not Detected</source>
        <translation>Non détecté</translation>
    </message>
    <message>
        <!-- resource text 16 -->
        <source>Unexpected Behavior</source>
        <translation>Comportement inattendu</translation>
    </message>
    <message>
        <!-- resource text 17 -->
        <source>Detection Fault</source>
        <translation>Défaut de détection</translation>
    </message>
    <message>
        <!-- resource text 18 -->
        <source>Communication Fault</source>
        <translation>Défaut de communication</translation>
    </message>
    <message>
        <!-- resource text 19 -->
        <source>Initialization Fault</source>
        <translation>Défaut d'initialisation</translation>
    </message>
    <message>
        <!-- resource text 20 -->
        <source>Runtime Fault</source>
        <translation>Défaut d'exécution</translation>
    </message>
    <message>
        <!-- resource text 21 -->
        <source>Critical Fault</source>
        <translation>Défaut critique</translation>
    </message>
    <message>
        <!-- resource text 22 -->
        <source>Not Present</source>
        <translation>Absent</translation>
    </message>
    <message>
        <!-- resource text 23 -->
        <source>Not Specified</source>
        <translation>Non spécifié</translation>
    </message>
    <message>
        <!-- resource text 24 -->
        <source>Upgrading</source>
        <translation>Mise à jour</translation>
    </message>
    <message>
        <!-- resource text 25 -->
        <source>Alarms</source>
        <translation>Alarmes</translation>
    </message>
    <message>
        <!-- resource text 26 -->
        <source>Configuration</source>
        <translation>Configuration</translation>
    </message>
    <message>
        <!-- resource text 27 -->
        <source>System</source>
        <translation>Système</translation>
    </message>
    <message>
        <!-- resource text 28 -->
        <source>Signal</source>
        <translation>Signal</translation>
    </message>
    <message>
        <!-- resource text 29 -->
        <source>Lamp Info</source>
        <translation>Infos lampe</translation>
    </message>
</context>
</TS>
