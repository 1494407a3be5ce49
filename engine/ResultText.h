#pragma once
// The text that ends a run on the Finished step (and in the headless tool).
#include <QString>
#include <optional>

namespace ResultText {
// closingText: the package's "Final.txt", when it has one.
QString compose(bool transferOnly, bool succeeded, const std::optional<QString> &closingText, bool instrumentRestarted,
                const QString &lastError);
}
