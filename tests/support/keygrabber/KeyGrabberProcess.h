#pragma once

// Another X client holding a key combination until the object goes (tarvel-test-key-grabber).
// Tests that use it define TARVEL_KEY_GRABBER_PATH with tarvel_use_key_grabber().
#include <QProcess>
#include <QString>

class KeyGrabberProcess final {
public:
    KeyGrabberProcess(const QString &key, const QString &modifiers)
    {
        m_process.start(QStringLiteral(TARVEL_KEY_GRABBER_PATH),
                        {QStringLiteral("--key"), key, QStringLiteral("--mods"), modifiers});
    }
    ~KeyGrabberProcess()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    KeyGrabberProcess(const KeyGrabberProcess &) = delete;
    KeyGrabberProcess &operator=(const KeyGrabberProcess &) = delete;

    // Whether the grab was taken (rather than refused).
    bool grabbed()
    {
        m_process.waitForReadyRead(10000);
        return m_process.readAllStandardOutput().trimmed() == "grabbed";
    }

private:
    QProcess m_process;
};
