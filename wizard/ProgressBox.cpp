#include "wizard/ProgressBox.h"

#include <QPainter>

ProgressBox::ProgressBox(QWidget *parent) : QFrame(parent)
{
    setFrameStyle(QFrame::Panel | QFrame::Sunken);
}

void ProgressBox::setShare(double share)
{
    m_share = share;
    update();
}

void ProgressBox::paintEvent(QPaintEvent *event)
{
    QFrame::paintEvent(event);
    const QRect inner = contentsRect();
    const double end = inner.width() * std::max(0.0, m_share);
    if (end <= 0)
        return;
    QPainter painter(this);
    painter.setClipRect(inner);
    painter.fillRect(QRectF(inner.left(), inner.top(), end, inner.height()), palette().highlight());
}
