#pragma once
// The wizard's pictures, drawn from the SVG files in the program's resources at the size
// and pixel density they are shown at, so they stay sharp on high-density screens.
#include <QPixmap>
#include <QString>

namespace StepPictures {
// name is the file name without ".svg" (step0..step3, upload0..upload3, finished).
QPixmap render(const QString &name, QSize size, qreal devicePixelRatio);
}
