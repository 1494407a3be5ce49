#pragma once
// A "++" GPIB controller in front of the simulated instrument, as a USB or network adapter
// presents itself to the host: lines starting with "++" are commands (++mode, ++addr, ++auto,
// ++eoi, ++eos, ++eot_enable, ++eot_char, ++read eoi, ++read_tmo_ms, ++ver); any other line is
// data for the device at the current address, with ESC before any CR, LF, ESC or "+" that
// belongs to the data, ended by an unescaped LF (or CR). Lines are carried out in the order
// they come, so reads asked one after the other are answered one after the other. The
// instrument sits at one address; data for another address finds no listener, and a read
// from another address finds no talker and returns nothing. What the instrument sends waits
// until the host asks it to talk; it then sends everything it has, or an empty frame when it
// has nothing, followed by the end-of-transmission character when ++eot_enable 1 asked for it.
#include <QByteArray>
#include <QObject>

class GpibControllerEmulation : public QObject {
    Q_OBJECT
public:
    // Whether the controller marks the end of what a talker sent (++eot_enable), as "++"
    // controllers do, or knows no such command, as some older or simpler ones.
    enum class EndMark { OnRequest, Never };

    explicit GpibControllerEmulation(int instrumentAddress, EndMark endMark = EndMark::OnRequest, QObject *parent = nullptr);

    // Bytes from the host.
    void receive(const QByteArray &bytes);
    // Bytes the instrument has sent; they wait until it is asked to talk.
    void fromInstrument(const QByteArray &bytes);

signals:
    void toInstrument(const QByteArray &bytes);
    void toHost(const QByteArray &bytes);

private:
    void endOfLine();
    void command(const QByteArray &line);
    void talk();

    int m_instrumentAddress;
    EndMark m_endMark;
    int m_address = 0;
    bool m_endEnabled = false; // ++eot_enable: m_endCharacter follows each talker's message
    char m_endCharacter = '\n';
    QByteArray m_line;
    bool m_escaped = false;
    bool m_lineHasEscapes = false;
    QByteArray m_talkerOutput;
};
