#include "log/LockIcon.h"

#include <QColor>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

using namespace Qt::Literals::StringLiterals;

const QString LockIcon::kEncrypt = u"encrypt"_s;
const QString LockIcon::kEncryptGrey = u"encrypt_grey"_s;
const QString LockIcon::kDecrypt = u"decrypt"_s;
const QString LockIcon::kDecryptGrey = u"decrypt_grey"_s;

namespace {

QPixmap drawLock(int size, bool open, const QColor& colour) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 32.0, size / 32.0);

    // The shackle: an arch whose legs end in the body; an open lock lifts it and leaves its
    // right leg outside.
    QPen pen(colour, 3.5, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    const qreal lift = open ? 3.0 : 0.0;
    const qreal top = 5.0 - lift;
    QPainterPath shackle;
    shackle.moveTo(10.0, 15.0);
    shackle.lineTo(10.0, top + 6.0);
    shackle.arcTo(QRectF(10.0, top, 12.0, 12.0), 180.0, -180.0);
    shackle.lineTo(22.0, open ? top + 7.0 : 15.0);
    painter.drawPath(shackle);

    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(QRectF(5.0, 14.0, 22.0, 16.0), 3.0, 3.0);
    // The keyhole, cut out of the body.
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.drawEllipse(QPointF(16.0, 20.5), 2.5, 2.5);
    painter.drawRect(QRectF(15.0, 21.0, 2.0, 5.0));
    return pixmap;
}

}  // namespace

QIcon LockIcon::named(const QString& name) {
    const bool open = name == kDecrypt || name == kDecryptGrey;
    QColor colour;
    if (name == kEncrypt) {
        colour = QColor(0x1f, 0x6f, 0x3f);
    } else if (name == kDecrypt) {
        colour = QColor(0xc0, 0x5a, 0x10);
    } else if (name == kEncryptGrey || name == kDecryptGrey) {
        colour = QColor(0xa0, 0xa0, 0xa0);
    } else {
        return {};
    }
    QIcon icon;
    for (const int size : {16, 24, 32, 64}) {
        icon.addPixmap(drawLock(size, open, colour));
    }
    return icon;
}
