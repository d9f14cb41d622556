#pragma once

#include <QObject>
#include <QSet>

class KeyboardGate;

// Tarvel's alerts outside a composer: a message and the text that explains it, kept above other
// windows since Tarvel has none of its own in front. One that follows what the user just did is
// modal and comes at once. One that nobody asked for (a failure found by a scan or at start-up)
// waits until the keyboard is free, blocks nothing, and is not shown again while the same alert
// is still up or waiting.
class AlertPresenter final : public QObject {
    Q_OBJECT

public:
    explicit AlertPresenter(KeyboardGate &keyboard, QObject *parent = nullptr);

    static void showWarning(const QString &message, const QString &informativeText);
    static void showNotice(const QString &message, const QString &informativeText);

    void presentUnrequested(const QString &message, const QString &informativeText);

private:
    KeyboardGate &m_keyboard;
    QSet<QString> m_upOrWaiting;
};
