#include "LoopbackModelServer.h"

#include <QFile>
#include <QJsonDocument>

LoopbackModelServer::LoopbackModelServer(const QString &logPath)
    : m_logPath(logPath)
{
    m_process.setProgram(QStringLiteral(TARVEL_PYTHON3));
    m_process.setArguments({QStringLiteral(TARVEL_FAKE_MODEL_SERVER), QStringLiteral("--log"), logPath,
                            QStringLiteral("--task-answer"), taskAnswer(), QStringLiteral("--rewrite-answer"),
                            rewriteAnswer()});
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start();
    if (!m_process.waitForStarted(10000))
        return;
    while (m_process.canReadLine() || m_process.waitForReadyRead(10000)) {
        const QByteArray line = m_process.readLine().trimmed();
        if (line.startsWith("PORT ")) {
            m_port = line.mid(5).toInt();
            break;
        }
    }
}

LoopbackModelServer::~LoopbackModelServer()
{
    // It serves until its standard input closes.
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString LoopbackModelServer::taskAnswer()
{
    return QStringLiteral("The loopback model finished the quick task.");
}

QString LoopbackModelServer::rewriteAnswer()
{
    return QStringLiteral("Fix the login bug in auth.py and add a regression test for it.");
}

QString LoopbackModelServer::baseURL() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

QList<QJsonObject> LoopbackModelServer::requests() const
{
    QList<QJsonObject> requests;
    QFile log(m_logPath);
    if (!log.open(QIODevice::ReadOnly))
        return requests;
    for (const QByteArray &line : log.readAll().split('\n')) {
        if (!line.isEmpty())
            requests.append(QJsonDocument::fromJson(line).object());
    }
    return requests;
}

bool LoopbackModelServer::received(const QString &path, const QString &text) const
{
    for (const QJsonObject &request : requests()) {
        if (request.value(QStringLiteral("path")).toString().startsWith(path) &&
            request.value(QStringLiteral("body")).toString().contains(text))
            return true;
    }
    return false;
}
