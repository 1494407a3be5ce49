#pragma once
// Finds frames in a byte stream. Bytes arrive in pieces of any size; every complete frame
// whose length and CRC-32 are right is delivered, the rest is counted and skipped. An END
// byte always starts afresh, so one corrupt or cut frame never costs the next one.
#include "link/Frame.h"

#include <QByteArray>
#include <QList>
#include <optional>

class FrameDecoder {
public:
    // The frames completed by these bytes, in order.
    QList<Frame> feed(const QByteArray &bytes);
    // Frames thrown away because their length or checksum was wrong.
    int corruptFrames() const { return m_corrupt; }
    void reset();

    // A frame being received whose header has arrived.
    struct Pending {
        uint8_t sequence;
        uint8_t type;
        // Wire bytes still to come, at least: the rest of its body and its END byte
        // (stuffing only adds to them).
        int bytesToCome;
    };
    std::optional<Pending> pending() const;

private:
    void finishFrame(QList<Frame> &out);

    QByteArray m_body;
    bool m_escaped = false;
    bool m_overlong = false;
    int m_corrupt = 0;
};
