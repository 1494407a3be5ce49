// varnolt-instrument: a simulated measuring instrument on a pseudo-terminal, on a serial line
// or behind an emulated GPIB controller (--gpib). It prints the device path for the host to
// open on its first line, serves until SIGTERM or SIGINT, and writes its flash to the dump
// folder at exit (and on SIGUSR1); its last line says how many bytes it received, the scale
// of --cut-power-after and --disconnect-after.
#include "instrument/GpibControllerEmulation.h"
#include "instrument/InstrumentOptions.h"
#include "instrument/PtyPort.h"
#include "instrument/SimulatedInstrument.h"
#include "resources/VersionOption.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <csignal>
#include <functional>
#include <memory>
#include <cstdio>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};

void onSignal(int number)
{
    const char byte = static_cast<char>(number);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}
} // namespace

int main(int argc, char **argv)
{
    if (VersionOption::answer(argc, argv, "varnolt-instrument"))
        return 0;
    QCoreApplication app(argc, argv);
    InstrumentOptions options;
    QString error;
    if (!InstrumentOptions::parse(app.arguments(), options, &error)) {
        std::fprintf(stderr, "varnolt-instrument: %s\n", qPrintable(error));
        return 2;
    }
    SimulatedInstrument instrument(options);
    if (!instrument.loadFiles(&error)) {
        std::fprintf(stderr, "varnolt-instrument: %s\n", qPrintable(error));
        return 2;
    }
    // A serial line at the instrument's rate, or the GPIB controller's link at its own (a byte
    // is 11 "bits").
    PtyPort pty(options.gpibAddress ? PtyPort::Line::GpibController : PtyPort::Line::Serial,
                options.gpibAddress ? options.gpibRate * 11 : options.baud, options.pacing);
    QObject::connect(&instrument, &SimulatedInstrument::lineRateChanged, &pty, &PtyPort::setLineRate);
    if (!pty.open(&error)) {
        std::fprintf(stderr, "varnolt-instrument: %s\n", qPrintable(error));
        return 1;
    }
    // What the host's bytes reach: the instrument itself on a serial line, or the GPIB
    // controller in front of it.
    std::unique_ptr<GpibControllerEmulation> gpib;
    if (options.gpibAddress) {
        gpib = std::make_unique<GpibControllerEmulation>(*options.gpibAddress);
        QObject::connect(gpib.get(), &GpibControllerEmulation::toInstrument, &instrument, &SimulatedInstrument::receive);
        QObject::connect(&instrument, &SimulatedInstrument::send, gpib.get(), &GpibControllerEmulation::fromInstrument);
    }
    const auto fromHost = [&](const QByteArray &bytes) {
        if (gpib)
            gpib->receive(bytes);
        else
            instrument.receive(bytes);
    };
    const auto connectToHost = [&](const QObject *context, const std::function<void(const QByteArray &)> &write) {
        if (gpib)
            QObject::connect(gpib.get(), &GpibControllerEmulation::toHost, context, write);
        else
            QObject::connect(&instrument, &SimulatedInstrument::send, context, write);
    };
    QObject::connect(&pty, &PtyPort::received, &app, fromHost);
    connectToHost(&pty, [&](const QByteArray &bytes) { pty.write(bytes); });
    QObject::connect(&instrument, &SimulatedInstrument::vanished, &app, [&] {
        pty.vanish();
        QCoreApplication::quit();
    });

    QTcpServer server;
    QTcpSocket *client = nullptr;
    if (options.tcpPort != 0) {
        if (!server.listen(QHostAddress::LocalHost, options.tcpPort)) {
            std::fprintf(stderr, "varnolt-instrument: cannot listen on port %u: %s\n", options.tcpPort,
                         qPrintable(server.errorString()));
            return 1;
        }
        QObject::connect(&server, &QTcpServer::newConnection, &app, [&] {
            client = server.nextPendingConnection();
            QObject::connect(client, &QTcpSocket::readyRead, &app, [&, socket = client] { fromHost(socket->readAll()); });
        });
        connectToHost(&server, [&](const QByteArray &bytes) {
            if (client && client->state() == QAbstractSocket::ConnectedState)
                client->write(bytes);
        });
    }

    if (::pipe(signalPipe) != 0)
        return 1;
    QSocketNotifier signalNotifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [&] {
        char number = 0;
        if (::read(signalPipe[0], &number, 1) != 1)
            return;
        if (number == SIGUSR1) {
            if (!instrument.dump(&error))
                std::fprintf(stderr, "varnolt-instrument: %s\n", qPrintable(error));
            return;
        }
        QCoreApplication::quit();
    });
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    std::signal(SIGUSR1, onSignal);

    std::printf("%s\n", qPrintable(pty.devicePath()));
    std::fflush(stdout);
    const int status = app.exec();
    std::printf("received %lld bytes\n", static_cast<long long>(instrument.bytesReceived()));
    std::fflush(stdout);
    if (!instrument.dump(&error)) {
        std::fprintf(stderr, "varnolt-instrument: %s\n", qPrintable(error));
        return 1;
    }
    return status;
}
