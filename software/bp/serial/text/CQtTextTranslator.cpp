// The Qt translation module: QTranslator behind ITextTranslator (see its header).

#include <QCoreApplication>
#include <QString>
#include <QTranslator>
#include <memory>

#include "ITextTranslator.h"

namespace {

class CQtTextTranslator : public ITextTranslator {
public:
    bool Load(const char* path) { return m_translator.load(QString::fromUtf8(path)); }

    std::string Translate(const char* context, const char* source) const override {
        return m_translator.translate(context, source).toStdString();
    }

    bool Install() override {
        return !QCoreApplication::instance() || QCoreApplication::installTranslator(&m_translator);
    }

    void Remove() override {
        if (QCoreApplication::instance()) {
            QCoreApplication::removeTranslator(&m_translator);
        }
    }

private:
    QTranslator m_translator;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ITextTranslator* ProjectorLoadTextTranslator(const char* path) {
    auto translator = std::make_unique<CQtTextTranslator>();
    return translator->Load(path) ? translator.release() : nullptr;
}
