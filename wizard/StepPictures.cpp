#include "wizard/StepPictures.h"

#include <QPainter>
#include <QSvgRenderer>

namespace StepPictures {

QPixmap render(const QString &name, QSize size, qreal devicePixelRatio)
{
    QSvgRenderer renderer(QStringLiteral(":/pictures/%1.svg").arg(name));
    QPixmap pixmap(size * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    if (renderer.isValid()) {
        QPainter painter(&pixmap);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
    }
    return pixmap;
}

} // namespace StepPictures
