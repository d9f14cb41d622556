#pragma once

#include "core/JSONCoding.h"

#include <QByteArray>
#include <QObject>
#include <QRectF>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

class QFileSystemWatcher;
class QSettings;

// The user-defaults store: small typed values under string keys. Every read goes to the
// backing store and every write is flushed at once, so another instance (or another copy of
// the application) sees it; nothing is cached here. A value of the wrong type reads as
// absent, never as an error.
//
// The application's store is standard(): the user-defaults domain "zq.tarvel" on the Mac and
// $XDG_CONFIG_HOME/Tarvel/Tarvel.conf (an INI file) elsewhere. Tests open their own file.
class UserDefaults final : public QObject {
    Q_OBJECT

public:
    // A store kept in the INI file at iniFilePath; the file and its folder are made on the first write.
    explicit UserDefaults(const QString &iniFilePath, QObject *parent = nullptr);
    ~UserDefaults() override;

    static UserDefaults &standard();

    // The backing file, or the domain name for the native Mac store.
    QString location() const;

    bool contains(const QString &key) const;
    // The stored value as the backing store returns it (an INI file returns text for scalars).
    QVariant value(const QString &key) const;

    std::optional<QString> string(const QString &key) const;
    // true/false, also read from their text form and from numbers.
    std::optional<bool> boolean(const QString &key) const;
    std::optional<qint64> integer(const QString &key) const;
    std::optional<QByteArray> data(const QString &key) const;
    // A window frame, as text in the form the Mac writes rectangles in, "{{x, y}, {w, h}}", so one
    // settings file serves both. Text of another shape reads as absent.
    std::optional<QRectF> rect(const QString &key) const;

    void setString(const QString &key, const QString &value);
    void setBool(const QString &key, bool value);
    void setInteger(const QString &key, qint64 value);
    void setData(const QString &key, const QByteArray &value);
    void setRect(const QString &key, const QRectF &value);
    void remove(const QString &key);

    // A record stored as JSON data. Missing, not data, or not decodable: absent.
    template<typename T> std::optional<T> record(const QString &key) const
    {
        const std::optional<QByteArray> bytes = data(key);
        if (!bytes)
            return std::nullopt;
        try {
            return JSONCoding::decodeRecord<T>(*bytes);
        } catch (const TarvelError &) {
            return std::nullopt;
        }
    }

    template<typename T> void setRecord(const QString &key, const T &record)
    {
        setData(key, JSONCoding::encodeRecord(record));
    }

    // Also announce writes by others (another copy of the application, an editor, a command):
    // didChange with an empty key when the backing file changes under us. Windows that show
    // settings call it; nothing else pays for the watch.
    void watchForExternalChanges();

Q_SIGNALS:
    // After every write through this instance, with the key that changed; an empty key when
    // something else changed the store (see watchForExternalChanges()).
    void didChange(const QString &key);

private:
    UserDefaults(std::unique_ptr<QSettings> settings, QObject *parent);
    QVariant freshValue(const QString &key) const;
    void write(const QString &key, const QVariant &value);
    void backingFileTouched();
    QByteArray backingFileDigest() const;

    std::unique_ptr<QSettings> m_settings;
    QFileSystemWatcher *m_watcher = nullptr;
    // The file as this instance last wrote or saw it, so its own writes are not taken for others'.
    QByteArray m_knownDigest;
};
