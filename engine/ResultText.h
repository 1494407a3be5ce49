#pragma once
// The text that ends a run on the Finished step (and in the headless tool), and the message
// of its outcome.
#include <QString>
#include <optional>

class QX_UploadProcess;

namespace ResultText {
// The last error's message, except for a failure that recorded no code (a checksum
// mismatch): its "OK" would say the opposite, so the line of the step that failed stands in.
QString message(const QX_UploadProcess &engine, bool succeeded);

// The text after the engine's run. closingText: the package's "Final.txt", when it has one.
// A failure or cancel from the erase on ends with the advice to run the update again.
QString compose(const QX_UploadProcess &engine, bool succeeded, const std::optional<QString> &closingText);
}
