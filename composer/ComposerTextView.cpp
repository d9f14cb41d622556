#include "composer/ComposerTextView.h"

#include "core/PromptAttachment.h"

#include <QDropEvent>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTextDocumentFragment>

ComposerTextView::ComposerTextView(QWidget *parent)
    : QTextEdit(parent)
{
    setAcceptRichText(false);
    setFrameStyle(QFrame::NoFrame);
    setLineWrapMode(QTextEdit::WidgetWidth);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabChangesFocus(false);
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(11);
    setFont(font);
    document()->setDefaultFont(font);
    // The panel draws the background. Transparent by palette rather than by style sheet: a style
    // sheet pins the look's colours at polish time, so text kept a dark look's colour on light.
    viewport()->setAutoFillBackground(false);
    QPalette transparent;
    transparent.setBrush(QPalette::Base, Qt::transparent);
    setPalette(transparent);
}

void ComposerTextView::insertTypedText(const QString &text)
{
    textCursor().insertText(text);
    ensureCursorVisible();
}

bool ComposerTextView::canInsertFromMimeData(const QMimeData *source) const
{
    return source->hasUrls() || source->hasImage() || source->hasText();
}

void ComposerTextView::insertFromMimeData(const QMimeData *source)
{
    if (onAttachmentPaste && onAttachmentPaste(source))
        return;
    if (source->hasText())
        insertTypedText(source->text());
}

QMimeData *ComposerTextView::createMimeDataFromSelection() const
{
    // Copy out plain text only; there is no formatting worth carrying.
    auto *data = new QMimeData;
    data->setText(textCursor().selection().toPlainText());
    return data;
}

void ComposerTextView::dropEvent(QDropEvent *event)
{
    const QList<QUrl> files = PromptAttachment::localFileUrls(event->mimeData());
    if (files.isEmpty() || !onFilesDropped) {
        QTextEdit::dropEvent(event);
        return;
    }
    // The editor ends its drag (the drop caret, the auto-scroll timer) only in its own drop
    // or leave handling, and this drop does not reach it: tell it the drag left.
    QDragLeaveEvent left;
    QTextEdit::dragLeaveEvent(&left);
    // Put the caret where the files were dropped, then write their paths there.
    setTextCursor(cursorForPosition(event->position().toPoint()));
    onFilesDropped(files);
    event->acceptProposedAction();
}

void ComposerTextView::keyPressEvent(QKeyEvent *event)
{
    if (onKeyPress && onKeyPress(event))
        return;
    QTextEdit::keyPressEvent(event);
}
