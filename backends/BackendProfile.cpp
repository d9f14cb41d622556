#include "backends/BackendProfile.h"

#include "core/DataFile.h"

#include <QDir>
#include <QRegularExpression>

QString BackendProfile::versionOutput(const QByteArray &standardOutput, const QByteArray &standardError) const
{
    const QString output = QString::fromUtf8(standardOutput).trimmed();
    return output.isEmpty() ? QString::fromUtf8(standardError).trimmed() : output;
}

bool BackendProfile::isVersionAnswer(const QString &output) const
{
    static const QRegularExpression digit(QStringLiteral("\\d"));
    return digit.match(output).hasMatch();
}

QString BackendProfile::versionCommandDisplay() const
{
    return rawValue() + u' ' + versionArguments().join(u' ');
}

QList<PromptAttachment>
BackendProfile::unsupportedAttachments(const QList<PromptAttachment> &attachments) const
{
    QList<PromptAttachment> unsupported;
    if (acceptsFolders())
        return unsupported;
    for (const PromptAttachment &attachment : attachments) {
        if (attachment.isDirectory())
            unsupported.append(attachment);
    }
    return unsupported;
}

std::optional<BackendModel> BackendProfile::resolvedModel(const ModelChoice &choice,
                                                          const QList<BackendModel> &models) const
{
    const QString identifier = canonicalModelIdentifier(choice.model);
    for (const BackendModel &candidate : models) {
        if (candidate.identifier == identifier)
            return candidate;
    }
    return std::nullopt;
}

QString BackendProfile::toolFolder(const char *variable, const QString &homeFolder)
{
    const QString named = qEnvironmentVariable(variable);
    return QDir::isAbsolutePath(named) ? named : QDir(QDir::homePath()).filePath(homeFolder);
}

std::optional<QByteArray> BackendProfile::readToolFile(const QString &path)
{
    return DataFile::readIfPlainFile(path, maximumToolFileSize);
}
