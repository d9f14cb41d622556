#include "composer/VoicePromptButton.h"

#include "composer/ComposerLayout.h"

#include <QIcon>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace {

constexpr int glyphSize = 16;

using Draw = void (*)(QPainter &, const QColor &);

void drawMicrophone(QPainter &painter, const QColor &color)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(QRectF(5.5, 1.5, 5, 8.5), 2.5, 2.5);
    painter.setPen(QPen(color, 1.4, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    QPainterPath cradle;
    cradle.moveTo(3.5, 7.5);
    cradle.cubicTo(3.5, 13, 12.5, 13, 12.5, 7.5);
    painter.drawPath(cradle);
    painter.drawLine(QPointF(8, 12), QPointF(8, 14.5));
}

void drawStop(QPainter &painter, const QColor &color)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(QRectF(3.5, 3.5, 9, 9), 1.5, 1.5);
}

void drawWaveform(QPainter &painter, const QColor &color)
{
    painter.setPen(QPen(color, 1.6, Qt::SolidLine, Qt::RoundCap));
    const double heights[] = {3, 7, 11, 6, 9, 4};
    for (int bar = 0; bar < 6; ++bar) {
        const double x = 2.5 + bar * 2.2;
        painter.drawLine(QPointF(x, 8 - heights[bar] / 2), QPointF(x, 8 + heights[bar] / 2));
    }
}

QIcon glyph(Draw draw, const QColor &color)
{
    QIcon icon;
    for (qreal ratio : {1.0, 2.0}) {
        QPixmap pixmap(QSize(glyphSize, glyphSize) * ratio);
        pixmap.setDevicePixelRatio(ratio);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        draw(painter, color);
        painter.end();
        // The same pixmap when disabled: the processing waveform keeps its colour.
        icon.addPixmap(pixmap, QIcon::Normal);
        icon.addPixmap(pixmap, QIcon::Disabled);
    }
    return icon;
}

} // namespace

VoicePromptButton::VoicePromptButton(QWidget *parent)
    : QToolButton(parent)
{
    setObjectName(QStringLiteral("VoicePromptButton"));
    setAutoRaise(true);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(ComposerLayout::voicePromptButtonWidth, ComposerLayout::footerHeight);
    setIconSize(QSize(glyphSize, glyphSize));
    applyState(m_state, false);
}

void VoicePromptButton::applyState(VoicePromptBuilder::State state, bool available)
{
    using State = VoicePromptBuilder::State;
    // Colours by the new state: the palette's current group is still the last state's.
    m_state = state;
    switch (state) {
    case State::idle:
        setIcon(glyph(drawMicrophone, palette().color(available ? QPalette::Active : QPalette::Disabled,
                                                      QPalette::ButtonText)));
        setToolTip(QStringLiteral("Dictate a prompt draft"));
        setEnabled(available);
        break;
    case State::recording:
        setIcon(glyph(drawStop, QColor(0xff, 0x3b, 0x30)));
        setToolTip(QStringLiteral("Stop recording and build a prompt draft"));
        setEnabled(true);
        break;
    case State::transcribing:
        setIcon(glyph(drawWaveform, palette().color(QPalette::Active, QPalette::Highlight)));
        setToolTip(QStringLiteral("Transcribing your dictated notes; Escape cancels"));
        setEnabled(false);
        break;
    case State::processing:
        setIcon(glyph(drawWaveform, palette().color(QPalette::Active, QPalette::Highlight)));
        setToolTip(QStringLiteral("Shaping your dictated notes into a prompt draft"));
        setEnabled(false);
        break;
    }
}
