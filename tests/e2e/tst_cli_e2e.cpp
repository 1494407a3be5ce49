// Whole updates as scripts and production lines run them: the real varnolt-cli updates the
// simulated instrument over a pseudo-terminal (on a serial line, or behind an emulated "++"
// GPIB controller) from the demo package, and its output, exit status, log file, the saved
// calibration data and the instrument's flash are checked byte for byte, also when the line
// is noisy, the instrument refuses or the port goes away. The demo package erases the sector
// that holds the calibration data and writes it back from the file it read it into, so every
// completed update shows the instrument's own calibration bytes back in place.
#include "tests/e2e/InstrumentProcess.h"
#include "tests/e2e/ToolOutput.h"
#include "tools/demo-package/DemoPackage.h"
#include "package/ZipArchive.h"
#include "tools/package-builder/PackageBuilder.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <csignal>
#include <zlib.h>

#include <QtTest>

namespace {
constexpr int RunLimitMs = 60000;
// Ctrl-C ends a run within one block's wire time and a little more; a second is several times
// that, and below every timeout that would otherwise end a held stage (the controller's answer
// to "++ver", eight resends of an unanswered request).
constexpr int CancelLimitMs = 1000;

} // namespace


class CliEndToEndTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_folder;
    QString m_package;
    QString m_calibrationSource;             // what the instrument starts with
    QString m_readBack;                      // where the package saves it
    const QByteArray m_calibration = QByteArray(0x200, '\x5A') + QByteArray(0x200, '\xA5');

    QString member(const QString &name) const { return m_folder.filePath(name); }

    QByteArray packageMember(const QString &name) const
    {
        ZipArchive archive(m_package);
        const auto index = archive.find(name);
        return index ? archive.read(*index).value_or(QByteArray()) : QByteArray();
    }

    QStringList instrumentArgs(bool paced = false) const
    {
        QStringList args{"--flash", "AM29F040@0x0", "--flash", "AM29LV800@0x100000", "--load", m_calibrationSource + "@0x0"};
        if (!paced)
            args << "--no-pacing" << "--time-scale" << "0";
        return args;
    }

    QProcessEnvironment environment(const QString &portMap) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TROVEX_PORTS"), portMap);
        return env;
    }

    void start(QProcess &tool, const QStringList &arguments, const QString &device) const
    {
        tool.setProcessEnvironment(environment(QStringLiteral("COM1=") + device));
        tool.setWorkingDirectory(m_folder.path());
        tool.start(QStringLiteral(VARNOLT_CLI), arguments);
    }

    CliRun run(const QStringList &arguments, const QString &device = QStringLiteral("/dev/null")) const
    {
        QProcess tool;
        start(tool, arguments, device);
        return finished(tool, RunLimitMs);
    }

    // The log file's line on an image verified by both checksums.
    QString imageLine(const QString &file, uint32_t address) const
    {
        const QByteArray image = file == DemoPackage::CalibrationFile ? m_calibration : packageMember(file);
        uint32_t sum = 0;
        for (const char c : image)
            sum += uint8_t(c);
        const QString crc = QString::number(crc32(0, reinterpret_cast<const Bytef *>(image.constData()), uInt(image.size())), 16).toUpper();
        return QStringLiteral("Image %1 at H%2, %3 bytes: sum H%4 (instrument H%4), CRC-32 H%5 (instrument H%5)")
            .arg(file, QString::number(address, 16).toUpper())
            .arg(image.size())
            .arg(QString::number(sum & 0xFF, 16).toUpper(), crc);
    }

    // The chips after an update, when nothing was written from the address writtenUpTo on.
    // The images go in package order: the main image, the calibration data written back, the
    // language's text; a refused block stops the run there. The calibration data's sector
    // holds its final content from the start (the data, FF behind it), so it is never erased.
    QByteArray expectedMainChip(int64_t writtenUpTo = INT64_MAX) const
    {
        QByteArray chip(512 * 1024, '\xFF');
        const QByteArray main = imageUpTo(QStringLiteral("MAIN207.BIN"), 0x10000, writtenUpTo);
        chip.replace(0x10000, main.size(), main);
        chip.replace(0, m_calibration.size(), m_calibration);
        return chip;
    }
    QByteArray expectedLanguageChip(const QString &image, int64_t writtenUpTo = INT64_MAX) const
    {
        QByteArray chip(1024 * 1024, '\xFF');
        const QByteArray text = imageUpTo(image, 0x100000, writtenUpTo);
        chip.replace(0, text.size(), text);
        return chip;
    }
    QByteArray imageUpTo(const QString &image, int64_t address, int64_t writtenUpTo) const
    {
        const QByteArray bytes = packageMember(image);
        return bytes.left(qsizetype(std::clamp<int64_t>(writtenUpTo - address, 0, bytes.size())));
    }
    // The demo package with another transfer program ("": the demo's) and one more range to
    // read back, at H80000, where no flash answers: the run fails there, before any erase.
    QString variant(const QByteArray &transferProgram) const
    {
        const QString path = member(QStringLiteral("variant/Model7.KDPKG"));
        if (!QDir().mkpath(QFileInfo(path).path()))
            return {};
        PackageBuilder builder;
        ZipArchive demo(m_package);
        for (const auto &[file, size] : demo.members()) {
            QByteArray bytes = demo.read(*demo.find(file)).value_or(QByteArray());
            if (file == QStringLiteral("TP207.BIN") && !transferProgram.isEmpty())
                bytes = transferProgram;
            if (file == QStringLiteral("KDCONFIG.INI"))
                bytes.replace("UPLOAD=0X0,0X400,", "UPLOAD1=0X80000,0X100,NO-FLASH.BIN\r\nUPLOAD=0X0,0X400,");
            builder.addMember(file, bytes);
        }
        QString error;
        return builder.write(path, &error) ? path : QString();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        m_calibrationSource = member(QStringLiteral("instrument-calibration.bin"));
        m_readBack = member(DemoPackage::CalibrationFile);
        QVERIFY(writeFile(m_calibrationSource, m_calibration));
        QString error;
        m_package = DemoPackage::write(m_folder.path(), &error);
        QVERIFY2(!m_package.isEmpty(), qPrintable(error));
        QVERIFY(!packageMember(QStringLiteral("MAIN207.BIN")).isEmpty());
    }

    void init() { QFile::remove(m_readBack); }

    void anUpdatePrintsItsLogAndTheClosingText()
    {
        InstrumentProcess instrument(instrumentArgs());
        QVERIFY(instrument.started());
        const QString logFile = member(QStringLiteral("run.log"));
        QFile::remove(logFile);
        const CliRun result = run({"update", m_package, "--log", logFile}, instrument.device());
        QVERIFY2(result.exitCode == 0, qPrintable(result.text() + result.errors()));
        QVERIFY(result.text().contains(QStringLiteral("\nManufacturer H1, Device HA4\n")));
        QVERIFY(result.text().contains(QStringLiteral("Firmware 2.07 is now installed")));
        QVERIFY(!result.text().contains(QLatin1Char('\r')));
        QVERIFY(result.err.isEmpty()); // no progress bar without a terminal

        // The file: what the run was about, every line stamped, how it ended.
        QStringList logged;
        for (const QString &line : QString::fromUtf8(bytesOf(logFile)).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            QVERIFY2(Stamp.match(line.section(QLatin1Char(' '), 0, 0)).hasMatch(), qPrintable(line));
            logged << line.section(QLatin1Char(' '), 1);
        }
        QVERIFY(logged.size() > 10);
        QVERIFY(logged.at(0).startsWith(QStringLiteral("varnolt-cli ")) && logged.at(0).endsWith(QStringLiteral(" update")));
        QCOMPARE(logged.mid(1, 5), (QStringList{"Package: " + m_package, "Package SHA-256: " + sha256(m_package),
                                                "Port: COM1 (" + instrument.device() + ")", "Language: ENGLISH",
                                                "Line rate: 115200 baud, then up to 921600 where the instrument and the port take it"}));
        QCOMPARE(logged.filter(QStringLiteral("Close Communication Channel")).size(), 1);
        QCOMPARE(logged.mid(logged.size() - 6), (QStringList{"Line used: 921600 baud, compressed program blocks",
                                                             imageLine("MAIN207.BIN", 0x10000), imageLine(DemoPackage::CalibrationFile, 0),
                                                             imageLine("TEXT_EN.BIN", 0x100000), "Result: success, code 0: OK",
                                                             "Exit status: 0"}));

        QCOMPARE(bytesOf(m_readBack), m_calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000), expectedLanguageChip(QStringLiteral("TEXT_EN.BIN")));
    }

    void jsonLinesForMachinesWithTheChosenLanguage()
    {
        InstrumentProcess instrument(instrumentArgs());
        const CliRun result = run({"update", m_package, "--json", "--language", "german", "--port", "com1"}, instrument.device());
        QCOMPARE(result.exitCode, 0);
        const QList<QJsonObject> objects = jsonLines(result.out);
        QVERIFY(objects.size() > 10);
        qint64 bytes = 0;
        int progressLines = 0;
        for (const QJsonObject &object : objects.mid(0, objects.size() - 1)) {
            const QString type = object.value(QStringLiteral("type")).toString();
            QVERIFY2(type == QStringLiteral("log") || type == QStringLiteral("progress"), qPrintable(type));
            if (type != QStringLiteral("progress"))
                continue;
            ++progressLines;
            const int percent = object.value(QStringLiteral("percent")).toInt(-1);
            QVERIFY(percent >= 0 && percent <= 100);
            const double overall = object.value(QStringLiteral("overall")).toDouble(-1);
            QVERIFY(overall >= 0 && overall <= 1);
            QVERIFY(object.value(QStringLiteral("bytes")).toInteger() >= bytes); // a counter, never going back
            bytes = object.value(QStringLiteral("bytes")).toInteger();
        }
        QVERIFY(progressLines > 0);
        QVERIFY(bytes > packageMember(QStringLiteral("MAIN207.BIN")).size());
        QCOMPARE(objects.at(objects.size() - 2).value(QStringLiteral("overall")).toDouble(), 1.0); // the last progress: all done
        const QJsonObject last = objects.last();
        QCOMPARE(last.value(QStringLiteral("type")).toString(), QStringLiteral("result"));
        QCOMPARE(last.value(QStringLiteral("success")).toBool(), true);
        QCOMPARE(last.value(QStringLiteral("code")).toInt(-1), 0);
        QCOMPARE(last.value(QStringLiteral("exitStatus")).toInt(-1), 0);
        QVERIFY(last.value(QStringLiteral("elapsedSeconds")).toDouble() > 0);
        QVERIFY(last.value(QStringLiteral("text")).toString().startsWith(QStringLiteral("Firmware 2.07 is now installed")));
        QCOMPARE(last.value(QStringLiteral("packageSha256")).toString(), sha256(m_package));
        QCOMPARE(last.value(QStringLiteral("port")).toString(), QStringLiteral("COM1"));
        QCOMPARE(last.value(QStringLiteral("device")).toString(), instrument.device());
        QCOMPARE(QJsonDocument(last.value(QStringLiteral("chips")).toArray()).toJson(QJsonDocument::Compact),
                 QByteArray(R"([{"device":164,"flash":"AM29F040","manufacturer":1},{"device":218,"flash":"AM29LV800","manufacturer":1}])"));
        // The two images and the calibration data written back.
        const qint64 images = packageMember(QStringLiteral("MAIN207.BIN")).size() + packageMember(QStringLiteral("TEXT_DE.BIN")).size()
                              + m_calibration.size();
        // The calibration data's sector held its final content already.
        QCOMPARE(last.value(QStringLiteral("bytesWritten")).toInteger(), images - m_calibration.size());
        QCOMPARE(last.value(QStringLiteral("bytesAlreadyRight")).toInteger(), m_calibration.size());
        QCOMPARE(last.value(QStringLiteral("bytesVerified")).toInteger(), images);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000), expectedLanguageChip(QStringLiteral("TEXT_DE.BIN")));
    }

    // Each row: the instrument (its faults, how the port reaches it) and what the update ends
    // in, as the JSON of the run says it. DEVICE stands for the instrument's pseudo-terminal.
    void updates_data()
    {
        // the instrument's fault options, "paced" for the real line rate and flash times, and
        // "line=RATE,compressed|plain" for the line the run must report it used
        QTest::addColumn<QStringList>("faults");
        QTest::addColumn<QString>("reach");      // serial, gpib (USB controller), gpib-tcp, gpib7 (wrong address), missing
        QTest::addColumn<QStringList>("options"); // of the tool
        QTest::addColumn<QString>("message");    // in the failure's message ("" for success); never "OK"
        QTest::addColumn<QString>("channelError"); // why the channel could not be opened ("" when it opened)
        QTest::addColumn<QString>("lastLine");   // the step's last log line before the shutdown ("" to skip)
        // 0 updated, 1 untouched, 2 calibration saved only, 3 nothing saved, 4 programmed up to the
        // block refused at --fail-program's address, nothing from that block on, 5 updated with
        // the garbled calibration data read back and written back as read, 6 failed before any
        // erase with nothing saved: the flash untouched
        QTest::addColumn<int>("outcome");
        const QStringList none;
        const QString notOpened = QStringLiteral("Communications Port failed to initialise");
        const QString fast = QStringLiteral("line=921600,compressed");
        QTest::newRow("serial, switched and compressed") << QStringList{fast} << "serial" << none << "" << ""
                                                         << "Instrument Restarted" << 0;
        QTest::newRow("at the line rate, with the flash's own times") << QStringList{"paced", fast} << "serial" << none << ""
                                                                       << "" << "Instrument Restarted" << 0;
        QTest::newRow("the instrument declines a faster rate") << QStringList{"--refuse-baud", "line=115200,compressed"} << "serial"
                                                               << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("the switch is lost: both ends fall back") << QStringList{"--lose-switch", "line=115200,compressed"}
                                                                 << "serial" << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("no faster rate allowed") << QStringList{"line=115200,compressed"} << "serial"
                                                << QStringList{"--max-baud", "0"} << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("a transfer program without abilities")
            << QStringList{"--basic-transfer-program", "line=115200,plain"} << "serial" << none << "" << ""
            << "Instrument Restarted" << 0;
        QTest::newRow("transfer program only") << none << "serial" << QStringList{"--transfer-only"} << "" << ""
                                               << "Transfer Program Read (TP207.BIN)" << 1;
        QTest::newRow("one byte in 1000 damaged") << QStringList{"--corrupt-rate", "0.001", "--seed", "7", fast} << "serial" << none
                                                  << "" << "" << "" << 0;
        QTest::newRow("one byte in 1000 damaged, another seed") << QStringList{"--corrupt-rate", "0.001", "--seed", "8", fast}
                                                                << "serial" << none << "" << "" << "" << 0;
        QTest::newRow("one byte in 1000 lost") << QStringList{"--drop-rate", "0.001", "--seed", "9"} << "serial" << none << "" << ""
                                               << "" << 0;
        // The switch's proof may not pass such a line: the update then goes on at 115200.
        QTest::newRow("one byte in 100 damaged") << QStringList{"--corrupt-rate", "0.01", "--seed", "7"} << "serial" << none << ""
                                                 << "" << "" << 0;
        QTest::newRow("one byte in 100 damaged, packed at 115200")
            << QStringList{"--corrupt-rate", "0.01", "--seed", "5", "line=115200,compressed"} << "serial"
            << QStringList{"--max-baud", "0"} << "" << "" << "" << 0;
        QTest::newRow("one byte in 100 lost") << QStringList{"--drop-rate", "0.01", "--seed", "9"} << "serial" << none << "" << ""
                                              << "" << 0;
        QTest::newRow("a read-back garbled once: caught by its CRC-32, read again")
            << QStringList{"--garble-read", "once", "rereads=1"} << "serial" << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("every read-back garbled: stopped before any erase")
            << QStringList{"--garble-read", "always", "rereads=3"} << "serial" << none
            << "READ BACK CHECK ERROR, CAL-M7.BIN: the 1024 bytes at H0, read 4 times, never matched the instrument's CRC-32 H"
            << "" << "Read Verify ERROR" << 6;
        QTest::newRow("a transfer program without range checksums: read once, unchecked")
            << QStringList{"--unknown", "range-crc", "--garble-read", "once"} << "serial" << none << "" << "" << "Instrument Restarted"
            << 5;
        QTest::newRow("wrong checksum") << QStringList{"--wrong-checksum"} << "serial" << none << "Checksum Error,  Target = H" << ""
                                        << "Checksum Error,  Target = H" << 2;
        QTest::newRow("erase fails") << QStringList{"--fail-erase", "0x20000"} << "serial" << none
                                     << "FLASH ERASE ERROR, failed at address = 20000" << "" << "FlashDelete ERROR" << 2;
        QTest::newRow("an erase the transfer program does not know")
            << QStringList{"--unknown", "erase"} << "serial" << none
            << "the instrument did not erase the 262144 bytes at H0 (status 65535)" << "" << "FlashDelete ERROR" << 2;
        // At the line rate, so that blocks are on their way behind the refused one.
        QTest::newRow("a block fails") << QStringList{"paced", "--time-scale", "0", "--fail-program", "0x12345"} << "serial" << none
                                       << "PROGRAMMING ERROR, failed at address 12345" << "" << "Prog ERROR" << 4;
        QTest::newRow("the last block of an image fails") << QStringList{"--fail-program", "0x102FF8"} << "serial" << none
                                                          << "PROGRAMMING ERROR, failed at address 102FF8" << "" << "Prog ERROR" << 4;
        QTest::newRow("voltage refused") << QStringList{"--refuse-voltage"} << "serial" << none << "PROGRAMMING POWER ON ERROR45" << ""
                                         << "Error setting Programming Voltage On" << 2;
        QTest::newRow("the port goes while programming")
            << QStringList{"--disconnect-after", "12000"} << "serial" << none
            << "the serial port DEVICE went away; check the cable and the USB adapter" << "" << "Prog ERROR" << 2;
        QTest::newRow("a missing device") << none << "missing" << none << notOpened
                                          << "the serial device /dev/varnolt-no-such-tty does not exist; check the port name and the "
                                             "TROVEX_PORTS map"
                                          << "" << 3;
        QTest::newRow("GPIB, USB controller: compressed at the controller's rate")
            << QStringList{"line=0,compressed"} << "gpib" << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("GPIB, network controller") << none << "gpib-tcp" << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("GPIB at the controller's rate, with the flash's own times")
            << QStringList{"paced"} << "gpib" << none << "" << "" << "Instrument Restarted" << 0;
        QTest::newRow("GPIB, no instrument at the address")
            << none << "gpib7" << none
            << "no instrument answers at GPIB address 7 behind the GPIB controller on DEVICE; check the address set on the "
               "instrument, the address in TROVEX_PORTS and the GPIB cable"
            << "" << "" << 3;
        QTest::newRow("GPIB, the controller goes while programming")
            << QStringList{"--disconnect-after", "12000"} << "gpib" << none << "the GPIB controller on DEVICE went away; check its USB cable"
            << "" << "Prog ERROR" << 2;
        QTest::newRow("GPIB, a device that is no controller")
            << none << "gpib-on-serial" << none << notOpened
            << "the GPIB controller on DEVICE does not answer (no reply to ++ver); check that it is a \"++\" GPIB controller "
               "and that it is switched on"
            << "" << 3;
    }
    void updates()
    {
        QFETCH(QStringList, faults);
        QFETCH(QString, reach);
        QFETCH(QStringList, options);
        QFETCH(QString, message);
        QFETCH(QString, channelError);
        QFETCH(QString, lastLine);
        QFETCH(int, outcome);
        const bool paced = faults.removeAll(QStringLiteral("paced")) > 0;
        const qsizetype lineAt = faults.indexOf(QRegularExpression(QStringLiteral("line=.*")));
        const QString lineUsed = lineAt < 0 ? QString() : faults.takeAt(lineAt).mid(5);
        const qsizetype reread = faults.indexOf(QRegularExpression(QStringLiteral("rereads=\\d+")));
        const int rereads = reread < 0 ? 0 : faults.takeAt(reread).mid(8).toInt();
        const bool gpib = reach.startsWith(QStringLiteral("gpib")) && reach != QStringLiteral("gpib-on-serial");
        const quint16 tcpPort = quint16(20000 + QCoreApplication::applicationPid() % 20000);
        QStringList instrumentOptions = instrumentArgs(paced) + faults;
        if (gpib)
            instrumentOptions << "--gpib" << "6";
        if (reach == QStringLiteral("gpib-tcp"))
            instrumentOptions << "--tcp" << QString::number(tcpPort);
        InstrumentProcess instrument(instrumentOptions);
        QVERIFY(instrument.started());
        const QString device = reach == QStringLiteral("missing") ? QStringLiteral("/dev/varnolt-no-such-tty") : instrument.device();
        QString portMap = QStringLiteral("COM1=") + device;
        if (reach.startsWith(QStringLiteral("gpib"))) {
            const QString controller = reach == QStringLiteral("gpib-tcp") ? QStringLiteral("127.0.0.1:%1").arg(tcpPort) : device;
            portMap = QStringLiteral("GPIB0=%1,%2").arg(controller).arg(reach == QStringLiteral("gpib7") ? 7 : 6);
            options << "--port" << "GPIB0";
        }
        QProcess tool;
        tool.setProcessEnvironment(environment(portMap));
        tool.setWorkingDirectory(m_folder.path());
        tool.start(QStringLiteral(VARNOLT_CLI), QStringList{"update", m_package, "--json"} + options);
        QVERIFY(tool.waitForFinished(RunLimitMs));
        const QList<QJsonObject> objects = jsonLines(tool.readAllStandardOutput());
        QVERIFY(!objects.isEmpty());
        QStringList lines;
        for (const QJsonObject &object : objects)
            lines << object.value(QStringLiteral("line")).toString();
        const QJsonObject result = objects.last();
        const QString report = QJsonDocument(result).toJson();
        QCOMPARE(tool.exitCode(), outcome <= 1 || outcome == 5 ? 0 : 1);
        QCOMPARE(result.value(QStringLiteral("readBackRereads")).toInt(-1), rereads);
        QCOMPARE(result.value(QStringLiteral("exitStatus")).toInt(-1), tool.exitCode());
        if (!message.isEmpty()) {
            const QString said = result.value(QStringLiteral("message")).toString();
            QVERIFY2(said.contains(message.replace(QStringLiteral("DEVICE"), device)), qPrintable(report));
            QVERIFY2(result.value(QStringLiteral("text")).toString().startsWith("The Firmware Upload process failed.\r\n\r\n" + said),
                     qPrintable(report));
        }
        QCOMPARE(result.value(QStringLiteral("channelError")).toString(), channelError.replace(QStringLiteral("DEVICE"), device));
        if (!lineUsed.isEmpty())
            QCOMPARE(QStringLiteral("%1,%2")
                         .arg(result.value(QStringLiteral("lineRate")).toInt())
                         .arg(result.value(QStringLiteral("compressedBlocks")).toBool() ? "compressed" : "plain"),
                     lineUsed);
        const qsizetype closing = lines.indexOf(QStringLiteral("Close Communication Channel"));
        if (!lastLine.isEmpty())
            QVERIFY2(closing > 0 && lines.at(closing - 1).startsWith(lastLine), qPrintable(lines.join(QLatin1Char('\n'))));

        QByteArray garbled = m_calibration;
        garbled[120] = char(uint8_t(garbled[120]) ^ 0x10); // the middle of the first 240-byte block
        const bool nothingSaved = outcome == 1 || outcome == 3 || outcome == 6;
        QCOMPARE(bytesOf(m_readBack), nothingSaved ? QByteArray() : outcome == 5 ? garbled : m_calibration);
        if (outcome == 4) {
            const int64_t refusedAt = faults.at(faults.indexOf(QStringLiteral("--fail-program")) + 1).toLongLong(nullptr, 0);
            const int64_t image = refusedAt < 0x100000 ? 0x10000 : 0x100000;
            const int64_t block = image + (refusedAt - image) / 240 * 240;
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip(block));
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000),
                     expectedLanguageChip(QStringLiteral("TEXT_EN.BIN"), block));
        }
        if (outcome == 5) {
            QByteArray chip = expectedMainChip();
            chip.replace(0, garbled.size(), garbled);
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), chip);
        }
        if (outcome == 0) {
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000),
                     expectedLanguageChip(QStringLiteral("TEXT_EN.BIN")));
        } else if (outcome == 1 || outcome == 6) {
            QByteArray untouched(512 * 1024, '\xFF');
            untouched.replace(0, m_calibration.size(), m_calibration);
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), untouched);
        }
    }

    // A run that failed leaves the instrument ready for the next, without switching it off: one
    // whose transfer program the boot ROM refused, and one that failed (at a read-back of its
    // own) with its transfer program running, which the next run goes on with. Another transfer
    // program left running ends the next run at once with what to do.
    void aSecondRunAfterAFailedOne_data()
    {
        QTest::addColumn<QByteArray>("transferProgram"); // the first package's ("" the demo's)
        QTest::addColumn<QString>("firstLastLine");
        QTest::addColumn<QString>("secondMessage"); // "" when the second run updates the instrument
        QTest::newRow("the boot ROM refused the transfer program")
            << QByteArray("XXXX") + QByteArray(2044, '\0') << "Transfer Program Failed, Error Code = 2" << "";
        QTest::newRow("the transfer program still runs") << QByteArray() << "Read ERROR" << "";
        QTest::newRow("another transfer program still runs")
            << QByteArray("KDTP") + QByteArray(2044, '\1') << "Read ERROR"
            << "another transfer program runs in the instrument (CRC-32 ";
    }
    void aSecondRunAfterAFailedOne()
    {
        QFETCH(QByteArray, transferProgram);
        QFETCH(QString, firstLastLine);
        QFETCH(QString, secondMessage);
        InstrumentProcess instrument(instrumentArgs());
        const QString first = variant(transferProgram);
        QVERIFY(!first.isEmpty());
        const CliRun bad = run({"update", first, "--overwrite"}, instrument.device());
        QCOMPARE(bad.exitCode, 1);
        const QStringList lines = bad.text().split(QLatin1Char('\n'));
        const qsizetype closing = lines.indexOf(QStringLiteral("Close Communication Channel"));
        QVERIFY2(closing > 0 && lines.at(closing - 1).startsWith(firstLastLine), qPrintable(bad.text()));
        QFile::remove(m_readBack);
        const CliRun second = run({"update", m_package}, instrument.device());
        if (secondMessage.isEmpty()) {
            QVERIFY2(second.exitCode == 0, qPrintable(second.text()));
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
        } else {
            QCOMPARE(second.exitCode, 1);
            QVERIFY2(second.text().contains(secondMessage)
                         && second.text().contains(QStringLiteral("; switch the instrument off and on, then repeat the update")),
                     qPrintable(second.text()));
        }
    }

    void badUsageExitsWithTwo_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("unknown port") << QStringList{"update", "@PKG", "--port", "COM9"}
                                      << "varnolt-cli: the package offers no port COM9; it offers COM1, COM2, GPIB0";
        QTest::newRow("unknown language") << QStringList{"update", "@PKG", "--language", "KLINGON"}
                                          << "varnolt-cli: the package offers no language KLINGON; it offers ENGLISH, GERMAN";
        QTest::newRow("no such package") << QStringList{"update", "missing.KDPKG"} << "varnolt-cli: no package missing.KDPKG";
        QTest::newRow("a port but no package") << QStringList{"update", "-p", "COM1"}
                                               << "varnolt-cli: update needs the package (the .KDPKG file) to install\n\nusage:";
        QTest::newRow("not an archive") << QStringList{"update", "@NOTZIP"}
                                        << "varnolt-cli: the package cannot be loaded: ";
        QTest::newRow("info of no archive") << QStringList{"info", "@NOTZIP"} << "is not a firmware package (no zip archive)";
        QTest::newRow("log file that cannot be written") << QStringList{"update", "@PKG", "--log", "/proc/no/such.log"}
                                                        << "varnolt-cli: cannot write the log file /proc/no/such.log";
        QTest::newRow("no command") << QStringList{} << "varnolt-cli: a command is needed\n\nusage: varnolt-cli update";
    }
    void badUsageExitsWithTwo()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const QString notZip = member(QStringLiteral("notes.KDPKG"));
        QVERIFY(writeFile(notZip, "this is text, not a zip archive\n"));
        arguments.replaceInStrings(QStringLiteral("@PKG"), m_package).replaceInStrings(QStringLiteral("@NOTZIP"), notZip);
        const CliRun result = run(arguments);
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.errors().contains(message), qPrintable(result.errors()));
        QVERIFY(!QFile::exists(m_readBack)); // nothing was started
    }

    // An existing read-back file: asked about on a terminal, decided by the flags otherwise.
    void anExistingReadBackFile_data()
    {
        QTest::addColumn<QStringList>("flags");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("no terminal, no flag: kept") << QStringList{} << 1;
        QTest::newRow("--keep-existing") << QStringList{"--keep-existing"} << 1;
        QTest::newRow("--overwrite") << QStringList{"--overwrite"} << 0;
    }
    void anExistingReadBackFile()
    {
        QFETCH(QStringList, flags);
        QFETCH(int, exitCode);
        const QByteArray earlier("calibration saved by an earlier update");
        QVERIFY(writeFile(m_readBack, earlier));
        InstrumentProcess instrument(instrumentArgs());
        const CliRun result = run(QStringList{"update", m_package} + flags, instrument.device());
        QCOMPARE(result.exitCode, exitCode);
        if (exitCode == 0) {
            QCOMPARE(bytesOf(m_readBack), m_calibration);
        } else {
            QVERIFY2(result.text().contains(QStringLiteral("Filename Invalid ") + DemoPackage::CalibrationFile), qPrintable(result.text()));
            QCOMPARE(bytesOf(m_readBack), earlier);
            QByteArray untouched(512 * 1024, '\xFF');
            untouched.replace(0, m_calibration.size(), m_calibration);
            QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), untouched);
        }
    }

    // Ctrl-C at every stage of a run: the tool ends at once with 130, the run's log says which
    // step was cut short, the channel is closed (once it was open), and the calibration data is
    // only ever there complete. Each stage is held by an instrument (or a GPIB controller) that
    // stops answering, so the cancel, not a timeout, ends it. From the erase on the first
    // Ctrl-C only warns, and the second stops the run.
    void ctrlCAtEveryStage_data()
    {
        QTest::addColumn<QString>("stallAt");     // the instrument's --stall-at; "" for a silent GPIB controller
        QTest::addColumn<QStringList>("stageBegins"); // the log lines, in order, after which the stage's request is on its way
        QTest::addColumn<QString>("failureLine"); // the line of the step that was cut short ("" for none)
        QTest::addColumn<bool>("afterErase");     // the calibration data is saved, Ctrl-C warns first
        QTest::newRow("channel open") << "" << QStringList{"UPLOAD FIRMWARE STARTED"} << "" << false;
        QTest::newRow("transfer program") << "load" << QStringList{"Transfer Program Read (TP207.BIN)"}
                                          << "Transfer Program Failed, Error Code = " << false;
        QTest::newRow("identification") << "identify" << QStringList{"Transfer Program Running"} << "QueryManufacturerCode ERROR"
                                        << false;
        QTest::newRow("read-back") << "read" << QStringList{"Read File = "} << "Read ERROR" << false;
        QTest::newRow("erase") << "erase" << QStringList{"FlashDelete Started"} << "FlashDelete ERROR" << true;
        QTest::newRow("program") << "program" << QStringList{"Program File = MAIN207.BIN", "Programming Voltage On"} << "Prog ERROR"
                                 << true;
    }
    void ctrlCAtEveryStage()
    {
        QFETCH(QString, stallAt);
        QFETCH(QStringList, stageBegins);
        QFETCH(QString, failureLine);
        QFETCH(bool, afterErase);
        QTcpServer silentController; // accepts, and never answers "++ver"
        QVERIFY(silentController.listen(QHostAddress::LocalHost));
        std::unique_ptr<InstrumentProcess> instrument;
        QProcess tool;
        tool.setWorkingDirectory(m_folder.path());
        if (stallAt.isEmpty()) {
            tool.setProcessEnvironment(environment(QStringLiteral("GPIB0=127.0.0.1:%1,6").arg(silentController.serverPort())));
            tool.start(QStringLiteral(VARNOLT_CLI), {"update", m_package, "--json", "--port", "GPIB0"});
        } else {
            instrument = std::make_unique<InstrumentProcess>(instrumentArgs() << "--stall-at" << stallAt + QStringLiteral(":60000"));
            QVERIFY(instrument->started());
            start(tool, {"update", m_package, "--json"}, instrument->device());
        }
        QVERIFY(tool.waitForStarted());
        QByteArray seen;
        const auto stageBegun = [&] {
            qsizetype from = 0;
            for (const QString &line : stageBegins)
                if ((from = seen.indexOf("\"line\":\"" + line.toUtf8(), from)) < 0)
                    return false;
            return true;
        };
        while (!stageBegun() && tool.waitForReadyRead(RunLimitMs))
            seen += tool.readAllStandardOutput();
        QVERIFY2(stageBegun(), seen.constData());
        ::kill(static_cast<pid_t>(tool.processId()), SIGINT);
        if (afterErase) {
            const QByteArray warning = "{\"message\":\"the erase has begun: stopping now may leave the instrument without working "
                                       "firmware until the update is run again. Press Ctrl-C again to stop anyway.\",";
            while (!seen.contains(warning) && tool.waitForReadyRead(RunLimitMs))
                seen += tool.readAllStandardOutput();
            QVERIFY2(seen.contains(warning), seen.constData());
            QCOMPARE(tool.state(), QProcess::Running); // the run goes on
            ::kill(static_cast<pid_t>(tool.processId()), SIGINT);
        }
        QVERIFY2(tool.waitForFinished(CancelLimitMs), "the run went on after Ctrl-C");
        seen += tool.readAllStandardOutput();
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tool.exitCode(), 130);

        const QList<QJsonObject> objects = jsonLines(seen);
        QVERIFY(!objects.isEmpty());
        QCOMPARE(objects.last().value(QStringLiteral("code")).toInt(), 11); // cancelled, not failed for another reason
        QStringList lines;
        for (const QJsonObject &object : objects)
            if (object.value(QStringLiteral("type")).toString() == QStringLiteral("log"))
                lines << object.value(QStringLiteral("line")).toString();
        QVERIFY(lines.contains(QStringLiteral("Upload Cancel Received")));
        const qsizetype closing = lines.indexOf(QStringLiteral("Close Communication Channel"));
        if (failureLine.isEmpty()) {
            QCOMPARE(closing, qsizetype(-1)); // the channel never opened
        } else {
            QVERIFY2(closing > 0 && lines.at(closing - 1).startsWith(failureLine), qPrintable(lines.join(QLatin1Char('\n'))));
        }
        QVERIFY(lines.last().startsWith(QStringLiteral("Firmware Upload Process completed in ")));
        // The file was created empty when the run checked it; it is filled only once read whole.
        QCOMPARE(bytesOf(m_readBack), afterErase ? m_calibration : QByteArray());
        QCOMPARE(seen.contains("\"type\":\"warning\""), afterErase);
    }

    void infoShowsThePackageAndItsConfiguration()
    {
        const CliRun result = run({"info", m_package});
        QCOMPARE(result.exitCode, 0);
        const QString text = result.text();
        for (const QString &expected :
             {QStringLiteral("Name:      Model 7 Signal Analyser - Firmware 2.07\n"), QStringLiteral("  MAIN207.BIN  98304 bytes\n"),
              QStringLiteral("Notes:     Firmware 2.07 (November 2026)"),
              QStringLiteral("  Ports:         COM1,COM2,GPIB0 (default COM1)\n"), QStringLiteral("  Baud:          115200\n"),
              QStringLiteral("  Processor:     I80X86\n"), QStringLiteral("  Block size:    240 bytes\n"),
              QStringLiteral("  Transfer:      TP207.BIN  2048 bytes, load H20000, start H20000\n"),
              QStringLiteral("  Memory:        AM29F040 (16) H0..H7FFFF (524288 bytes)\n"),
              QStringLiteral("  Erase:         H0..H3FFFF (262144 bytes)\n"),
              QStringLiteral("  Read back:     CAL-M7.BIN  H0..H3FF (1024 bytes)\n"),
              QStringLiteral("  Programs (GERMAN):\n    MAIN207.BIN  H10000..H27FFF (98304 bytes)\n"),
              QStringLiteral("    TEXT_DE.BIN  H100000..H1033FF (13312 bytes)\n")})
            QVERIFY2(text.contains(expected), qPrintable(expected + QStringLiteral(" not in:\n") + text));

        const CliRun json = run({"info", m_package, "--json"});
        QCOMPARE(json.exitCode, 0);
        const QList<QJsonObject> objects = jsonLines(json.out);
        QCOMPARE(objects.size(), 1);
        const QJsonObject configuration = objects.at(0).value(QStringLiteral("configuration")).toObject();
        QCOMPARE(objects.at(0).value(QStringLiteral("name")).toString(), QStringLiteral("Model 7 Signal Analyser - Firmware 2.07"));
        QCOMPARE(configuration.value(QStringLiteral("ports")).toVariant().toStringList(), (QStringList{"COM1", "COM2", "GPIB0"}));
        QCOMPARE(QJsonDocument(configuration.value(QStringLiteral("programs")).toArray().at(1).toObject()).toJson(QJsonDocument::Compact),
                 QByteArray(R"({"language":"GERMAN","programs":[{"file":"MAIN207.BIN","inPackage":true,"length":98304,"start":65536},)"
                            R"({"file":"CAL-M7.BIN","inPackage":false,"length":1024,"start":0,"writesBack":true},)"
                            R"({"file":"TEXT_DE.BIN","inPackage":true,"length":13312,"start":1048576}]})"));
    }

    void portsListsTheMapAndWhatOpens()
    {
        InstrumentProcess instrument(instrumentArgs());
        QProcess tool;
        tool.setProcessEnvironment(environment(QStringLiteral("COM1=%1;COM2=/dev/varnolt-no-such-tty").arg(instrument.device())));
        tool.start(QStringLiteral(VARNOLT_CLI), {"ports"});
        QVERIFY(tool.waitForFinished(RunLimitMs));
        QCOMPARE(tool.exitCode(), 0);
        const QString text = QString::fromUtf8(tool.readAllStandardOutput());
        QVERIFY2(text.contains(QRegularExpression(QStringLiteral("COM1 +%1 +opens\n").arg(QRegularExpression::escape(instrument.device())))),
                 qPrintable(text));
        QVERIFY(text.contains(QRegularExpression(QStringLiteral("COM2 +/dev/varnolt-no-such-tty +missing\n"))));
        QVERIFY(text.contains(QRegularExpression(QStringLiteral("COM3 +/dev/ttyS2 "))));
        QVERIFY(text.contains(QStringLiteral("\nUSB serial adapters:\n"))); // which ones depends on the machine
    }

    // The doctor on the simulated instrument's port: the instrument holds its terminal as the
    // line's other end, not as a program in the way, so nothing is wrong; a missing device is.
    void doctorOnTheInstrumentsPort()
    {
        InstrumentProcess instrument(instrumentArgs());
        QProcess tool;
        tool.setProcessEnvironment(environment(QStringLiteral("COM1=%1;COM2=/dev/varnolt-no-such-tty").arg(instrument.device())));
        tool.start(QStringLiteral(VARNOLT_CLI), {"doctor", "COM1"});
        QVERIFY(tool.waitForFinished(RunLimitMs));
        QCOMPARE(QString::fromUtf8(tool.readAllStandardOutput()),
                 QStringLiteral("COM1 opens %1, as TROVEX_PORTS says\n  Highest rate: 4000000 baud\n  No problem found.\n")
                     .arg(instrument.device()));
        QCOMPARE(tool.exitCode(), 0);
        tool.start(QStringLiteral(VARNOLT_CLI), {"doctor", "COM2"});
        QVERIFY(tool.waitForFinished(RunLimitMs));
        QCOMPARE(tool.exitCode(), 1);
        QVERIFY(tool.readAllStandardOutput().contains("/dev/varnolt-no-such-tty does not exist"));
    }

    void versionAndHelp()
    {
        const CliRun version = run({"--version"});
        QCOMPARE(version.exitCode, 0);
        QVERIFY(version.text().startsWith(QStringLiteral("varnolt-cli ")));
        const CliRun help = run({"--help"});
        QCOMPARE(help.exitCode, 0);
        QVERIFY(help.text().contains(QStringLiteral("Exit status: 0 success")));
    }
};

QTEST_GUILESS_MAIN(CliEndToEndTest)
#include "tst_cli_e2e.moc"
