#include "composer/EditorComposer.h"

#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "core/ComposerRequest.h"
#include "core/PromptAttachment.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMimeData>
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
        // After the close button (and the remote mark), before the space that pushes the buttons right.
        QHBoxLayout *footer = panel()->footerLayout();
        footer->insertWidget(m_remoteMark ? footer->indexOf(m_remoteMark) + 1 : 1, m_notice);
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

void EditorComposer::markRemote(const RemoteOrigin &origin)
{
    const QString mark = QStringLiteral("on ") + origin.host;
    panel()->setWindowTitle(panel()->windowTitle() + QStringLiteral(" \u2014 ") + mark);
    m_remoteMark = new QLabel(mark, panel());
    m_remoteMark->setObjectName(QStringLiteral("ComposerRemoteMark"));
    m_remoteMark->setTextFormat(Qt::PlainText);
    QFont bold = m_remoteMark->font();
    bold.setBold(true);
    m_remoteMark->setFont(bold);
    QStringList where;
    if (origin.fileName)
        where << *origin.fileName;
    if (origin.workingDirectory)
        where << QStringLiteral("in ") + *origin.workingDirectory;
    m_remoteMark->setToolTip(
        QStringLiteral("Asked for by tarvel-edit on %1%2")
            .arg(origin.host, where.isEmpty() ? QString() : QStringLiteral(": ") + where.join(u' ')));
    panel()->footerLayout()->insertWidget(1, m_remoteMark);

    // Files and images would reach the other machine as paths on this one; text goes as it is.
    const QString refusal =
        QStringLiteral("Only text goes to %1: files and images stay here.").arg(origin.host);
    ComposerTextView *text = panel()->textView();
    text->onAttachmentPaste = [this, refusal](const QMimeData *data) {
        if (PromptAttachment::localFileUrls(data).isEmpty() && (data->hasText() || !data->hasImage()))
            return false;
        showNotice(refusal);
        return true;
    };
    text->onFilesDropped = [this, refusal](const QList<QUrl> &) {
        showNotice(refusal);
    };
}
