#pragma once

#include "composer/ComposerServices.h"

#include <QObject>

class ComposerPanel;
class ComposerSurface;
class QLabel;
struct RemoteOrigin;

// The composer of an editor request: the request's text, edited for the helper that
// waits for it. Pasted files and images become their paths in the text. Which request
// it edits is its owner's business.
class EditorComposer final : public QObject {
    Q_OBJECT

public:
    // The defaults, the shortcuts, the speech recogniser, the history and the spelling are used.
    // A composer may be made ahead of time, hidden, and given its request's text when one comes.
    explicit EditorComposer(const QString &initialText, const ComposerServices &services = {},
                            QObject *parent = nullptr);
    ~EditorComposer() override;

    ComposerSurface &surface() const { return *m_surface; }
    ComposerPanel *panel() const;
    QString text() const;

    void showWindow();
    // One line in the footer, left of the buttons.
    void showNotice(const QString &text);
    // The helper stopped waiting: the text can only be copied now, and Submit says so.
    void markWithdrawn();
    bool isWithdrawn() const { return m_withdrawn; }
    // A request from another machine: "on HOST" beside the buttons and in the title, and only
    // text goes in, since a path on this computer means nothing there.
    void markRemote(const RemoteOrigin &origin);
    QLabel *remoteMark() const { return m_remoteMark; }

Q_SIGNALS:
    void submitted(const QString &text);
    void cancelled();

private:
    ComposerSurface *m_surface = nullptr;
    QLabel *m_notice = nullptr;
    QLabel *m_remoteMark = nullptr;
    bool m_withdrawn = false;
};
