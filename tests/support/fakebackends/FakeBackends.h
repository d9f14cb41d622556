#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

#include <sys/types.h>

// The fake codex, claude and opencode programs of this folder, copied into a fresh bin
// folder, with a folder where their runs record what they saw. TARVEL_FAKE_BACKENDS_DIR
// names this folder at build time.
class FakeBackends final {
public:
    explicit FakeBackends(const QStringList &names = {QStringLiteral("codex"), QStringLiteral("claude"),
                                                      QStringLiteral("opencode")})
    {
        QDir().mkpath(binDirectory());
        QDir().mkpath(recordDirectory());
        const QDir source(QStringLiteral(TARVEL_FAKE_BACKENDS_DIR));
        for (const QString &name : names + QStringList{QStringLiteral("fakebackend.sh")})
            QFile::copy(source.filePath(name), QDir(binDirectory()).filePath(name));
    }

    QString binDirectory() const { return m_root.filePath(QStringLiteral("bin")); }
    QString recordDirectory() const { return m_root.filePath(QStringLiteral("record")); }
    QString executable(const QString &name) const { return QDir(binDirectory()).filePath(name); }
    // PATH for a test: the fakes first, then the system's tools (sh, sleep, cat).
    QString searchPath() const { return binDirectory() + QStringLiteral(":/usr/bin:/bin"); }

    // The step with which the fake codex prints its final answer, as `codex exec --json` does.
    static QString codexAnswerStep(const QString &text)
    {
        return QStringLiteral(
                   R"(out {"type":"item.completed","item":{"type":"agent_message","text":"%1"}}\n)")
            .arg(text);
    }

    // Writes a steps file for FAKE_STEPS and returns its path.
    QString writeSteps(const QStringList &steps) const
    {
        const QString path = m_root.filePath(QStringLiteral("steps-%1").arg(++m_stepsFiles));
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(steps.join(u'\n').toUtf8() + '\n');
        return path;
    }

    QString recordPath(const QString &file) const { return QDir(recordDirectory()).filePath(file); }
    QByteArray recorded(const QString &file) const
    {
        QFile recordFile(recordPath(file));
        return recordFile.open(QIODevice::ReadOnly) ? recordFile.readAll() : QByteArray();
    }
    void forget(const QString &file) const { QFile::remove(recordPath(file)); }
    // The arguments a run of the named fake received, after argv[0].
    QStringList recordedArguments(const QString &name) const
    {
        QStringList arguments;
        const QByteArray data = recorded(name + QStringLiteral(".argv"));
        for (const QByteArray &argument : data.split('\0'))
            arguments.append(QString::fromUtf8(argument));
        if (!arguments.isEmpty())
            arguments.removeLast(); // after the last NUL
        return arguments;
    }
    // The arguments of the named fake's next run: waits for its record, then forgets it.
    QStringList nextArguments(const QString &name, int milliseconds = 15000) const
    {
        const QString file = name + QStringLiteral(".argv");
        if (!QTest::qWaitFor([&] { return !recorded(file).isEmpty(); }, milliseconds))
            return {};
        const QStringList arguments = recordedArguments(name);
        forget(file);
        return arguments;
    }
    bool isReady() const { return QFile::exists(QDir(recordDirectory()).filePath(QStringLiteral("ready"))); }
    std::optional<pid_t> grandchildProcessIdentifier() const
    {
        bool ok = false;
        const int pid = recorded(QStringLiteral("grandchild.pid")).trimmed().toInt(&ok);
        return ok && pid > 0 ? std::optional<pid_t>(pid) : std::nullopt;
    }

private:
    QTemporaryDir m_dir;
    QDir m_root{m_dir.path()};
    mutable int m_stepsFiles = 0;
};
