#pragma once

#include <QByteArray>
#include <QDir>
#include <QTemporaryDir>
#include <QtGlobal>

#include <utility>
#include <vector>

// Points HOME and the XDG folders at a fresh temporary folder for the lifetime of the
// object, so that no test reads or writes the user's real data or settings.
class TestEnvironment final {
public:
    TestEnvironment()
    {
        set("HOME", m_root.path());
        set("XDG_DATA_HOME", path(QStringLiteral(".local/share")));
        set("XDG_CONFIG_HOME", path(QStringLiteral(".config")));
        set("XDG_CACHE_HOME", path(QStringLiteral(".cache")));
        unset("CODEX_HOME"); // codex's folder is HOME/.codex, as the tests write it
        QDir().mkpath(path(QStringLiteral(".local/share")));
        QDir().mkpath(path(QStringLiteral(".config")));
    }

    ~TestEnvironment()
    {
        for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
            if (it->second.isNull())
                qunsetenv(it->first.constData());
            else
                qputenv(it->first.constData(), it->second);
        }
    }

    TestEnvironment(const TestEnvironment &) = delete;
    TestEnvironment &operator=(const TestEnvironment &) = delete;

    QString root() const { return m_root.path(); }
    QString path(const QString &relative) const { return QDir(m_root.path()).filePath(relative); }

    // Each change remembers the value before it, which the destructor puts back.
    void set(const char *name, const QString &value)
    {
        unset(name);
        qputenv(name, value.toLocal8Bit());
    }
    void unset(const char *name)
    {
        m_saved.emplace_back(QByteArray(name),
                             qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray());
        qunsetenv(name);
    }

private:
    QTemporaryDir m_root;
    std::vector<std::pair<QByteArray, QByteArray>> m_saved;
};
