#pragma once
// The wizard's pictures, drawn from the SVG files in the program's resources at the size
// and pixel density they are shown at, so they stay sharp on high-density screens.
#include <QPixmap>
#include <QString>

namespace StepPictures {
// The Finished step's pictures, one for each way a run ends.
inline constexpr const char *Succeeded = "finished";
inline constexpr const char *Failed = "failed";
inline constexpr const char *Cancelled = "cancelled";

// name is the file name without ".svg" (step0..step3, upload0..upload3, and the three above).
QPixmap render(const QString &name, QSize size, qreal devicePixelRatio);
}
