#pragma once
// Loads the transfer program into the instrument's RAM through its boot ROM, one LoadBlock
// request at a time, and starts it with Start; the link's retransmissions and timeouts ride
// out a noisy line and bound a silent one. Destroying the loader abandons the load: nothing
// more is sent (a request already on its way is left to the link).
#include <QByteArray>
#include <QObject>
#include <cstdint>
#include <optional>

class Link;

class TransferProgramLoader : public QObject {
    Q_OBJECT
public:
    TransferProgramLoader(Link &link, QByteArray image, uint32_t loadAddress, uint32_t startAddress,
                          QObject *parent = nullptr);

    // Sends the first request; exactly one of finished or failed follows, from the event loop.
    void start();

signals:
    // The boot ROM's Start result (Protocol::StartResult): 0 when the transfer program runs.
    void finished(uint32_t result);
    // The link failed, or the boot ROM refused a block.
    void failed(const QString &reason);

private:
    void sendNext();
    void onReplied(uint8_t sequence, const QByteArray &payload);
    uint32_t blockAddress() const { return m_loadAddress + uint32_t(m_offset); }

    Link &m_link;
    QByteArray m_image;
    uint32_t m_loadAddress;
    uint32_t m_startAddress;
    qsizetype m_offset = 0;             // the first byte not loaded yet
    std::optional<uint8_t> m_waitingFor; // the request whose answer comes next
    bool m_starting = false;
};
