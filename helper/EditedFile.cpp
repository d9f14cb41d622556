#include "helper/EditedFile.h"

#include "core/TarvelError.h"

#include <QDir>
#include <QFileInfo>
#include <QStringDecoder>

namespace {

QString quoted(const QString &path)
{
    return QStringLiteral("\u201c%1\u201d").arg(QDir::toNativeSeparators(path));
}

} // namespace

EditedFile::EditedFile(const QString &path)
    : m_absolutePath(QFileInfo(path).absoluteFilePath())
    , m_file(m_absolutePath)
{
    const QFileInfo info(m_absolutePath);
    if (info.exists() && !info.isFile())
        throw TarvelError(QStringLiteral("%1 is not a regular file.").arg(quoted(path)));
    if (!m_file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
        throw SystemError(QStringLiteral("open %1 for editing").arg(quoted(path)), m_file.errorString());
    m_original = m_file.readAll();
    if (m_file.error() != QFileDevice::NoError)
        throw SystemError(QStringLiteral("read %1").arg(quoted(path)), m_file.errorString());

    // Keep a byte-order mark as a character, so that an unchanged text is written back
    // byte for byte.
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    m_text = decoder.decode(m_original);
    if (decoder.hasError())
        throw TarvelError(QStringLiteral("%1 is not UTF-8 text.").arg(quoted(path)));
}

void EditedFile::replaceText(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const auto rewrite = [this](const QByteArray &data) {
        return m_file.seek(0) && m_file.resize(0) && m_file.write(data) == data.size() && m_file.flush();
    };
    if (rewrite(bytes))
        return;
    const QString reason = m_file.errorString();
    rewrite(m_original);
    throw SystemError(QStringLiteral("write %1").arg(quoted(m_absolutePath)), reason);
}
