#include "platform/SpeechRecognizer.h"
#include "platform/linux/SpeechModule.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibrary>

namespace {

QString modulePath()
{
    // Installed (and built) at the same place relative to the program in bin/.
    const QString programFolder =
        QCoreApplication::instance()
            ? QCoreApplication::applicationDirPath()
            : QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget().section(u'/', 0, -2);
    return QDir::cleanPath(QDir(programFolder).filePath(QStringLiteral(TARVEL_SPEECH_MODULE_PATH)));
}

} // namespace

SpeechModule &SpeechModule::load()
{
    static SpeechModule *module = nullptr;
    if (module)
        return *module;
    static QLibrary library;
    library.setFileName(modulePath());
    using Entry = SpeechModule *(*)();
    const auto entry = reinterpret_cast<Entry>(library.resolve(TARVEL_SPEECH_MODULE_ENTRY));
    module = entry ? entry() : nullptr;
    if (!module)
        throw SpeechRecognizerError(
            SpeechRecognizerError::Kind::recognitionUnavailable,
            QStringLiteral("Tarvel's speech component could not be loaded (%1). Reinstall Tarvel.")
                .arg(library.errorString()));
    return *module;
}
