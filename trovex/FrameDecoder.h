#pragma once
// Finds frames in a byte stream. Bytes arrive in pieces of any size; every complete frame
// whose length and CRC-32 are right is delivered, the rest is counted and skipped. An END
// byte always starts afresh, so one corrupt or cut frame never costs the next one.
#include "trovex/Frame.h"

#include <QByteArray>
#include <QList>

class FrameDecoder {
public:
    // The frames completed by these bytes, in order.
    QList<Frame> feed(const QByteArray &bytes);
    // Frames thrown away because their length or checksum was wrong.
    int corruptFrames() const { return m_corrupt; }
    void reset();

private:
    void finishFrame(QList<Frame> &out);

    QByteArray m_body;
    bool m_escaped = false;
    bool m_overlong = false;
    int m_corrupt = 0;
};
