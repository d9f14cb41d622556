#include "core/UserDefaults.h"

#include "core/AppConstants.h"
#include "platform/HostPlatform.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>

namespace {

std::unique_ptr<QSettings> openStandardSettings()
{
    if (HostPlatform::usesMacConventions()) {
        // Qt reverses an organisation written as an Internet domain into the defaults domain, and with
        // no application name it uses that domain alone: "tarvel.zq" becomes the domain "zq.tarvel".
        return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                           QStringLiteral("tarvel.zq"), QString());
    }
    // The path is worked out here rather than by QSettings, which remembers the config folder of its
    // first use; this way a changed XDG_CONFIG_HOME is honoured.
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::make_unique<QSettings>(
        QDir(folder).filePath(AppConstants::appName + u'/' + AppConstants::appName + QStringLiteral(".conf")),
        QSettings::IniFormat);
}

bool isScalarText(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

QString rectString(const QRectF &rect)
{
    const auto number = [](double value) {
        return QString::number(value, 'g', 15);
    };
    return QStringLiteral("{{%1, %2}, {%3, %4}}")
        .arg(number(rect.x()), number(rect.y()), number(rect.width()), number(rect.height()));
}

std::optional<QRectF> rectFromString(const QString &text)
{
    static const QString number =
        QStringLiteral(u"\\s*([-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][-+]?\\d+)?)\\s*");
    static const QRegularExpression pattern(
        QStringLiteral(u"^\\s*\\{\\s*\\{%1,%1\\}\\s*,\\s*\\{%1,%1\\}\\s*\\}\\s*$").arg(number));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    return QRectF(match.captured(1).toDouble(), match.captured(2).toDouble(), match.captured(3).toDouble(),
                  match.captured(4).toDouble());
}

} // namespace

UserDefaults::UserDefaults(const QString &iniFilePath, QObject *parent)
    : UserDefaults(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat), parent)
{
}

UserDefaults::UserDefaults(std::unique_ptr<QSettings> settings, QObject *parent)
    : QObject(parent)
    , m_settings(std::move(settings))
{
}

UserDefaults::~UserDefaults() = default;

UserDefaults &UserDefaults::standard()
{
    static UserDefaults *instance = new UserDefaults(openStandardSettings(), nullptr);
    return *instance;
}

QString UserDefaults::location() const
{
    return m_settings->fileName();
}

QVariant UserDefaults::freshValue(const QString &key) const
{
    // sync() re-reads the backing store when another writer has changed it.
    m_settings->sync();
    return m_settings->value(key);
}

void UserDefaults::write(const QString &key, const QVariant &value)
{
    // Saving rewrites and syncs the whole file (some milliseconds on the way to every composer,
    // which notes the request's folder): a value already stored is not written again.
    m_settings->sync();
    if (value.isValid() ? m_settings->value(key) == value : !m_settings->contains(key))
        return;
    if (value.isValid())
        m_settings->setValue(key, value);
    else
        m_settings->remove(key);
    m_settings->sync();
    if (m_watcher)
        m_knownDigest = backingFileDigest();
    Q_EMIT didChange(key);
}

void UserDefaults::watchForExternalChanges()
{
    if (m_watcher)
        return;
    m_watcher = new QFileSystemWatcher(this);
    m_knownDigest = backingFileDigest();
    // QSettings replaces the file on every save, so the folder is what keeps being watched; the
    // file itself too, for editors that write in place.
    const QFileInfo file(location());
    QDir().mkpath(file.absolutePath());
    m_watcher->addPath(file.absolutePath());
    if (file.exists())
        m_watcher->addPath(file.absoluteFilePath());
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &UserDefaults::backingFileTouched);
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, &UserDefaults::backingFileTouched);
}

void UserDefaults::backingFileTouched()
{
    const QString path = QFileInfo(location()).absoluteFilePath();
    if (QFile::exists(path) && !m_watcher->files().contains(path))
        m_watcher->addPath(path);
    const QByteArray digest = backingFileDigest();
    if (digest == m_knownDigest)
        return;
    m_knownDigest = digest;
    Q_EMIT didChange(QString());
}

QByteArray UserDefaults::backingFileDigest() const
{
    QFile file(location());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

bool UserDefaults::contains(const QString &key) const
{
    m_settings->sync();
    return m_settings->contains(key);
}

QVariant UserDefaults::value(const QString &key) const
{
    return freshValue(key);
}

std::optional<QString> UserDefaults::string(const QString &key) const
{
    const QVariant value = freshValue(key);
    if (!isScalarText(value))
        return std::nullopt;
    return value.toString();
}

std::optional<bool> UserDefaults::boolean(const QString &key) const
{
    const QVariant value = freshValue(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return value.toDouble() != 0.0;
    case QMetaType::QString: {
        const QString text = value.toString().trimmed().toLower();
        if (text == u"true" || text == u"yes" || text == u"1")
            return true;
        if (text == u"false" || text == u"no" || text == u"0")
            return false;
        return std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<qint64> UserDefaults::integer(const QString &key) const
{
    const QVariant value = freshValue(key);
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toLongLong();
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::QString: {
        bool ok = false;
        const qint64 number = value.toString().trimmed().toLongLong(&ok);
        return ok ? std::optional<qint64>(number) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<QByteArray> UserDefaults::data(const QString &key) const
{
    const QVariant value = freshValue(key);
    if (value.typeId() != QMetaType::QByteArray)
        return std::nullopt;
    return value.toByteArray();
}

std::optional<QRectF> UserDefaults::rect(const QString &key) const
{
    const std::optional<QString> text = string(key);
    return text ? rectFromString(*text) : std::nullopt;
}

void UserDefaults::setString(const QString &key, const QString &value)
{
    write(key, value);
}

void UserDefaults::setBool(const QString &key, bool value)
{
    write(key, value);
}

void UserDefaults::setInteger(const QString &key, qint64 value)
{
    write(key, value);
}

void UserDefaults::setData(const QString &key, const QByteArray &value)
{
    write(key, value);
}

void UserDefaults::setRect(const QString &key, const QRectF &value)
{
    write(key, rectString(value));
}

void UserDefaults::remove(const QString &key)
{
    write(key, QVariant());
}
