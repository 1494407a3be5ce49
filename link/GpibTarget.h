#pragma once
// Where the instrument behind a GPIB port name is, as the port map gives it:
//   DEVICE,ADDRESS            a "++" controller on a serial device    /dev/ttyUSB0,6
//   HOST[:PORT],ADDRESS       a "++" controller on the network        192.168.1.40:1234,6
//   linux-gpib[:BOARD],ADDRESS  a board of the linux-gpib library     linux-gpib:0,6
// ADDRESS is the instrument's primary GPIB address, 0 to 30.
#include <QString>
#include <optional>

struct GpibTarget {
    enum class Controller { PlusPlusSerial, PlusPlusTcp, LinuxGpib };

    Controller controller = Controller::PlusPlusSerial;
    QString device; // the serial device, or the host
    quint16 tcpPort = DefaultTcpPort;
    int board = 0;
    int address = 0;

    // "the GPIB controller on /dev/ttyUSB0", for messages.
    QString describe() const;

    // nullopt with a reason when text follows none of the forms.
    static std::optional<GpibTarget> parse(const QString &text, QString *error);

    static constexpr quint16 DefaultTcpPort = 1234; // where network "++" controllers listen
    static constexpr int HighestAddress = 30;
};
