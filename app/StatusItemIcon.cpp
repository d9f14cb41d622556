#include "app/StatusItemIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace StatusItemIcon {

QImage makeImage(bool showsPromptLine, qreal devicePixelRatio, bool showsRecording)
{
    QImage image(QSize(width, height) * devicePixelRatio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);

    // Dark body with a light rim reads on light and dark trays alike.
    const QRectF body(1.5, 1.5, width - 3, height - 3);
    painter.setPen(QPen(QColor(0xd8, 0xde, 0xe9), 1.2));
    painter.setBrush(QColor(0x2e, 0x34, 0x40));
    painter.drawRoundedRect(body, 3, 3);

    QPen glyph(QColor(0xec, 0xef, 0xf4), 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(glyph);
    painter.setBrush(Qt::NoBrush);
    QPainterPath chevron;
    chevron.moveTo(5, 5.5);
    chevron.lineTo(8.5, 9);
    chevron.lineTo(5, 12.5);
    painter.drawPath(chevron);
    if (showsPromptLine)
        painter.drawLine(QPointF(10.5, 12.5), QPointF(15, 12.5));
    if (showsRecording) {
        painter.setPen(QPen(QColor(0x2e, 0x34, 0x40), 1));
        painter.setBrush(QColor(0xff, 0x3b, 0x30));
        painter.drawEllipse(QPointF(width - 4.5, 4.5), 3.5, 3.5);
    }
    return image;
}

QIcon makeIcon(bool showsPromptLine, bool showsRecording)
{
    QIcon icon;
    for (qreal ratio : {1.0, 2.0})
        icon.addPixmap(QPixmap::fromImage(makeImage(showsPromptLine, ratio, showsRecording)));
    return icon;
}

} // namespace StatusItemIcon
