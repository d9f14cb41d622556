#include "platform/linux/PocketSphinxModel.h"

#include <QFileInfo>

namespace {

// PocketSphinx ends the whole process (exit(1)) on some damaged model files instead of failing the
// load, so what it needs is checked first: each file there, readable and not empty.
QString damagedModelFile(const QDir &folder)
{
    const QDir acoustic(PocketSphinxModel::acousticModel(folder));
    QStringList needed{PocketSphinxModel::languageModel(folder), PocketSphinxModel::dictionary(folder)};
    for (const char *name : {"mdef", "means", "variances", "transition_matrices", "noisedict", "feat.params"})
        needed.append(acoustic.filePath(QString::fromLatin1(name)));
    needed.append(acoustic.filePath(QFileInfo::exists(acoustic.filePath(QStringLiteral("sendump")))
                                        ? QStringLiteral("sendump")
                                        : QStringLiteral("mixture_weights")));
    for (const QString &path : std::as_const(needed)) {
        const QFileInfo file(path);
        if (!file.isFile() || !file.isReadable() || file.size() == 0)
            return path;
    }
    return {};
}

} // namespace

namespace PocketSphinxModel {

QString directory()
{
    const QString configured = qEnvironmentVariable("TARVEL_POCKETSPHINX_MODEL");
    return configured.isEmpty() ? QStringLiteral(TARVEL_POCKETSPHINX_MODEL_DIR "/en-us") : configured;
}

QString acousticModel(const QDir &folder)
{
    return folder.filePath(QStringLiteral("en-us"));
}

QString languageModel(const QDir &folder)
{
    return folder.filePath(QStringLiteral("en-us.lm.bin"));
}

QString dictionary(const QDir &folder)
{
    return folder.filePath(QStringLiteral("cmudict-en-us.dict"));
}

QString unavailableReason()
{
    const QDir folder(directory());
    const bool present = QFileInfo(acousticModel(folder)).isDir() &&
                         QFileInfo(languageModel(folder)).isFile() && QFileInfo(dictionary(folder)).isFile();
    if (present) {
        const QString damaged = damagedModelFile(folder);
        if (damaged.isEmpty())
            return {};
        return QStringLiteral("The PocketSphinx speech model in %1 is damaged (%2 is missing, unreadable or "
                              "empty). Reinstall the Debian package pocketsphinx-en-us.")
            .arg(QDir::toNativeSeparators(folder.path()), QFileInfo(damaged).fileName());
    }
    return QStringLiteral(
               "Speech recognition needs the PocketSphinx US English model, which is not installed "
               "(looked in %1). Install the Debian package pocketsphinx-en-us, or set a speech "
               "recogniser command in Tarvel's settings.")
        .arg(QDir::toNativeSeparators(folder.path()));
}

} // namespace PocketSphinxModel
