#include "composer/EditorComposer.h"

#include "composer/ComposerSurface.h"

EditorComposer::EditorComposer(const QString &initialText, const ComposerServices &services, QObject *parent)
    : QObject(parent)
    , m_surface(new ComposerSurface(ComposerLayout::Mode::editorRequest, initialText, this))
{
    connect(m_surface, &ComposerSurface::submitRequested, this, [this] { Q_EMIT submitted(text()); });
    connect(m_surface, &ComposerSurface::cancelRequested, this, &EditorComposer::cancelled);
    if (services.speechRecognizer && services.defaults)
        m_surface->enableVoicePrompt(*services.speechRecognizer, *services.defaults, services.shortcuts);
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
