<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en_US">
<context>
    <name>NText</name>
    <message>
        <!-- resource text 1 -->
        <source>On</source>
        <translation>Ein</translation>
    </message>
    <message>
        <!-- resource text 2 -->
        <source>Off</source>
        <translation>Aus</translation>
    </message>
    <message>
        <!-- resource text 3 -->
        <source>Yes</source>
        <translation>Ja</translation>
    </message>
    <message>
        <!-- resource text 4 -->
        <source>No</source>
        <translation>Nein</translation>
    </message>
    <message>
        <!-- resource text 5 -->
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <!-- resource text 6 -->
        <source>Warning</source>
        <translation>Warnung</translation>
    </message>
    <message>
        <!-- resource text 7 -->
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <!-- resource text 8 -->
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <!-- resource text 9 -->
        <source>Reserved</source>
        <translation>Reserviert</translation>
    </message>
    <message>
        <!-- resource text 10 -->
        <source>Failed</source>
        <translation>Fehlgeschlagen</translation>
    </message>
    <message>
        <!-- resource text 11 -->
        <source>Auto Detect</source>
        <translation>Automatische Erkennung</translation>
    </message>
    <message>
        <!-- resource text 12 -->
        <source>N/A</source>
        <translation>k. A.</translation>
    </message>
    <message>
        <!-- resource text 13 -->
        <source>Unknown</source>
        <translation>Unbekannt</translation>
    </message>
    <message>
        <!-- resource text 14 -->
        <source>Detected</source>
        <translation>Erkannt</translation>
    </message>
    <message>
        <!-- resource text 15 -->
        <source>Not Detected</source>
        <translation>Nicht erkannt</translation>
    </message>
    <message>
        <!-- resource text 16 -->
        <source>Unexpected Behavior</source>
        <translation>Unerwartetes Verhalten</translation>
    </message>
    <message>
        <!-- resource text 17 -->
        <source>Detection Fault</source>
        <translation>Erkennungsfehler</translation>
    </message>
    <message>
        <!-- resource text 18 -->
        <source>Communication Fault</source>
        <translation>Kommunikationsfehler</translation>
    </message>
    <message>
        <!-- resource text 19 -->
        <source>Initialization Fault</source>
        <translation>Initialisierungsfehler</translation>
    </message>
    <message>
        <!-- resource text 20 -->
        <source>Runtime Fault</source>
        <translation>Laufzeitfehler</translation>
    </message>
    <message>
        <!-- resource text 21 -->
        <source>Critical Fault</source>
        <translation>Kritischer Fehler</translation>
    </message>
    <message>
        <!-- resource text 22 -->
        <source>Not Present</source>
        <translation>Nicht vorhanden</translation>
    </message>
    <message>
        <!-- resource text 23 -->
        <source>Not Specified</source>
        <translation>Nicht angegeben</translation>
    </message>
    <message>
        <!-- resource text 24 -->
        <source>Upgrading</source>
        <translation>Aktualisierung</translation>
    </message>
    <message>
        <!-- resource text 25 -->
        <source>Alarms</source>
        <translation>Alarme</translation>
    </message>
    <message>
        <!-- resource text 26 -->
        <source>Configuration</source>
        <translation>Konfiguration</translation>
    </message>
    <message>
        <!-- resource text 27 -->
        <source>System</source>
        <translation>System</translation>
    </message>
    <message>
        <!-- resource text 28 -->
        <source>Signal</source>
        <translation>Signal</translation>
    </message>
    <message>
        <!-- resource text 29 -->
        <source>Lamp Info</source>
        <translation>Lampeninfo</translation>
    </message>
</context>
</TS>
