#pragma once
// Brings the instrument's transfer program up. It first asks which program answers (Hello):
// the boot ROM does not know the request, and the program is then loaded into the RAM one
// LoadBlock request at a time, each as long as the link advises for the line (shorter while it
// damages frames), and started with Start; the same transfer program, left running
// by an earlier update that failed, answers with its image's CRC-32 and length and is simply
// used again. The link's retransmissions and timeouts ride out a noisy line and bound a silent
// one. Destroying the loader abandons the load: nothing more is sent (a request already on its
// way is left to the link).
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
    // The boot ROM's Start result (Protocol::StartResult): 0 when the transfer program runs,
    // also when it already ran.
    void finished(uint32_t result);
    // The link failed, the boot ROM refused a block, or another program runs in the instrument.
    void failed(const QString &reason);

private:
    enum class Step { Hello, Load, Start };

    void send(Step step, uint8_t type, const QByteArray &payload);
    void sendNext();
    void onReplied(uint8_t sequence, const QByteArray &payload);
    void onHello(const QByteArray &payload);
    void onLoaded(const QByteArray &payload);
    uint32_t blockAddress() const { return m_loadAddress + uint32_t(m_offset); }

    Link &m_link;
    QByteArray m_image;
    uint32_t m_loadAddress;
    uint32_t m_startAddress;
    qsizetype m_offset = 0;             // the first byte not loaded yet
    qsizetype m_blockBytes = 0;         // of the block on its way
    std::optional<uint8_t> m_waitingFor; // the request whose answer comes next
    Step m_step = Step::Hello;
};
