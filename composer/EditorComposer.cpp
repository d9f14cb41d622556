#include "composer/EditorComposer.h"

#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

EditorComposer::EditorComposer(const QString &initialText, const ComposerServices &services, QObject *parent)
    : QObject(parent)
    , m_surface(new ComposerSurface(ComposerLayout::Mode::editorRequest, initialText, this))
{
    connect(m_surface, &ComposerSurface::submitRequested, this, [this] { Q_EMIT submitted(text()); });
    connect(m_surface, &ComposerSurface::cancelRequested, this, &EditorComposer::cancelled);
    if (services.speechRecognizer && services.defaults)
        m_surface->enableVoicePrompt(*services.speechRecognizer, *services.defaults, services.shortcuts);
    m_surface->enableEditingAids(services);
    m_surface->applyInitialSize();
}

EditorComposer::~EditorComposer() = default;

ComposerPanel *EditorComposer::panel() const
{
    return m_surface->panel();
}

QString EditorComposer::text() const
{
    return m_surface->text();
}

void EditorComposer::showWindow()
{
    m_surface->show(true);
}

void EditorComposer::showNotice(const QString &text)
{
    if (!m_notice) {
        m_notice = new QLabel(panel());
        m_notice->setObjectName(QStringLiteral("ComposerNotice"));
        m_notice->setTextFormat(Qt::PlainText);
        m_notice->setForegroundRole(QPalette::PlaceholderText);
        // After the close button, before the space that pushes the buttons right.
        panel()->footerLayout()->insertWidget(1, m_notice);
    }
    m_notice->setText(text);
}

void EditorComposer::markWithdrawn()
{
    if (m_withdrawn)
        return;
    m_withdrawn = true;
    showNotice(QStringLiteral("The terminal stopped waiting."));
    QPushButton *submit = panel()->submitButton();
    submit->setText(QStringLiteral("Copy and Close"));
    submit->setToolTip(QStringLiteral("Put the text on the clipboard and close"));
}
