#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>

// The stand-in model server (fake_model_server.py) on 127.0.0.1, for as long as the object
// lives. It answers every model request with fixed text and logs each request it receives.
class LoopbackModelServer final {
public:
    explicit LoopbackModelServer(const QString &logPath);
    ~LoopbackModelServer();
    LoopbackModelServer(const LoopbackModelServer &) = delete;
    LoopbackModelServer &operator=(const LoopbackModelServer &) = delete;

    // What it answers a quick task, and a prompt rewrite (a request with dictated notes).
    static QString taskAnswer();
    static QString rewriteAnswer();

    // 0 when the server did not start.
    int port() const { return m_port; }
    QString baseURL() const;

    // The requests that reached the server, oldest first.
    QList<QJsonObject> requests() const;
    // Whether a request to a path starting with path carried text in its body.
    bool received(const QString &path, const QString &text) const;

private:
    QString m_logPath;
    QProcess m_process;
    int m_port = 0;
};
