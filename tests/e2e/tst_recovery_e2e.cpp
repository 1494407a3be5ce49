// The safety net, end to end: the real varnolt-cli against the simulated instrument over a
// pseudo-terminal, its flash compared byte for byte. An update cut short (the power lost in the
// erase or in the programming, the port gone) and run again ends with exactly the flash of an
// uninterrupted update, the calibration file as the first run saved it and the rerun's log
// line for line that of an update; verify compares without writing; read and restore move any
// range, restore keeping the bytes around what it writes back.
#include "package/ZipArchive.h"
#include "tests/e2e/InstrumentProcess.h"
#include "tests/e2e/ToolOutput.h"
#include "tools/demo-package/DemoPackage.h"

#include <QJsonArray>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <QtTest>

namespace {
constexpr int RunLimitMs = 60000;
constexpr uint32_t LanguageChip = 0x100000;
constexpr int CalibrationBytes = 0x400;
constexpr int OlderBootLoaderBytes = 0x1000;
using DemoPackage::noise;

// The elapsed time is the machine's; everything else of a log is the update's.
QStringList withoutElapsedTime(QStringList lines)
{
    lines.replaceInStrings(QRegularExpression(QStringLiteral("completed in \\d+ Minutes \\d+ Seconds$")), QStringLiteral("completed"));
    return lines;
}
} // namespace

class RecoveryEndToEndTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_folder;
    QString m_package;
    const QByteArray m_calibration = noise(CalibrationBytes, 3);

    QString path(const QString &name) const { return m_folder.filePath(name); }
    QString calibrationFile() const { return path(DemoPackage::CalibrationFile); }

    QByteArray member(const QString &name) const
    {
        ZipArchive archive(m_package);
        const auto index = archive.find(name);
        return index ? archive.read(*index).value_or(QByteArray()) : QByteArray();
    }

    // What the instrument holds before any update: its calibration data, an older firmware and
    // an older text, so that every sector the update writes differs at first; withBoot, also an
    // older boot loader beside the calibration data, so that the update erases that sector too
    // and writes the data back.
    QByteArray oldMainChip(bool withBoot = false) const
    {
        QByteArray chip = DemoPackage::olderFlash(m_calibration).main;
        if (!withBoot)
            chip.replace(CalibrationBytes, OlderBootLoaderBytes, QByteArray(OlderBootLoaderBytes, '\xFF'));
        return chip;
    }
    QByteArray oldLanguageChip() const { return DemoPackage::olderFlash(m_calibration).language; }
    QByteArray updatedMainChip() const { return DemoPackage::updatedFlash(m_calibration).main; }
    QByteArray updatedLanguageChip() const { return DemoPackage::updatedFlash(m_calibration).language; }

    // An instrument whose chips hold main and language (written to files to load) at power-on.
    std::unique_ptr<InstrumentProcess> instrument(const QByteArray &main, const QByteArray &language, const QStringList &faults = {},
                                                  const QString &tag = QStringLiteral("a")) const
    {
        const QString mainFile = path(tag + QStringLiteral("-main.bin"));
        const QString languageFile = path(tag + QStringLiteral("-language.bin"));
        if (!writeFile(mainFile, main) || !writeFile(languageFile, language))
            return nullptr;
        auto started = std::make_unique<InstrumentProcess>(
            QStringList{"--flash", "AM29F040@0x0", "--flash", "AM29LV800@0x100000", "--load", mainFile + "@0x0", "--load",
                        languageFile + "@0x100000", "--no-pacing", "--time-scale", "0"}
            + faults);
        return started->started() ? std::move(started) : nullptr;
    }

    CliRun run(const QStringList &arguments, const InstrumentProcess &on) const
    {
        QProcess tool;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TROVEX_PORTS"), QStringLiteral("COM1=") + on.device());
        tool.setProcessEnvironment(env);
        tool.setWorkingDirectory(m_folder.path());
        tool.start(QStringLiteral(VARNOLT_CLI), arguments);
        return finished(tool, RunLimitMs);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        QString error;
        m_package = DemoPackage::write(m_folder.path(), &error);
        QVERIFY2(!m_package.isEmpty(), qPrintable(error));
    }

    void init()
    {
        for (const QString &file : QDir(m_folder.path()).entryList({DemoPackage::CalibrationFile + QStringLiteral("*")}))
            QFile::remove(path(file));
    }

    // Each row cuts an update short, switches the instrument off and on (a new instrument
    // process with the flash the first one left), and runs the update again, saying it is the
    // same instrument.
    void aRerunAfterAnInterruptionWritesOnlyWhatIsMissing_data()
    {
        QTest::addColumn<QStringList>("fault");
        QTest::addColumn<QString>("firstRunMessage");
        QTest::addColumn<bool>("withBoot"); // the calibration data's sector is erased and written back
        QTest::newRow("power lost halfway through the erase") << QStringList{"--cut-power-in", "erase"}
                                                             << "the instrument did not answer" << false;
        QTest::newRow("power lost in the programming") << QStringList{"--cut-power-in", "program:200"}
                                                       << "the instrument did not answer" << false;
        QTest::newRow("the port gone in the programming") << QStringList{"--disconnect-after", "30000"} << "went away" << false;
        QTest::newRow("power lost after the calibration data's sector was erased, before it went back")
            << QStringList{"--cut-power-in", "program:200"} << "the instrument did not answer" << true;
    }
    void aRerunAfterAnInterruptionWritesOnlyWhatIsMissing()
    {
        QFETCH(QStringList, fault);
        QFETCH(QString, firstRunMessage);
        QFETCH(bool, withBoot);
        // The log of an update that is not interrupted, for the rerun's to match.
        QStringList updateLog;
        {
            const auto clean = instrument(oldMainChip(withBoot), oldLanguageChip(), {}, QStringLiteral("clean"));
            QVERIFY(clean);
            const CliRun update = run({"update", m_package, "--json", "--overwrite"}, *clean);
            QCOMPARE(update.exitCode, 0);
            updateLog = withoutElapsedTime(logLinesOf(jsonLines(update.out)));
            QCOMPARE(clean->stopAndDump(QStringLiteral("AM29F040"), 0), updatedMainChip());
        }
        QFile::remove(calibrationFile());

        auto first = instrument(oldMainChip(withBoot), oldLanguageChip(), fault);
        QVERIFY(first);
        const CliRun cut = run({"update", m_package, "--json"}, *first);
        QCOMPARE(cut.exitCode, 1);
        const QJsonObject cutResult = jsonLines(cut.out).last();
        QVERIFY2(cutResult.value(QStringLiteral("message")).toString().contains(firstRunMessage),
                 qPrintable(cutResult.value(QStringLiteral("message")).toString()));
        const QByteArray savedByTheFirstRun = bytesOf(calibrationFile());
        QCOMPARE(savedByTheFirstRun, m_calibration);
        const QByteArray leftMain = first->stopAndDump(QStringLiteral("AM29F040"), 0);
        const QByteArray leftLanguage = first->stopAndDump(QStringLiteral("AM29LV800"), LanguageChip);
        QVERIFY(leftMain != oldMainChip(withBoot) && leftMain != updatedMainChip()); // cut short in the middle
        QCOMPARE(leftMain.left(m_calibration.size()) == m_calibration, !withBoot);

        auto again = instrument(leftMain, leftLanguage, {}, QStringLiteral("b"));
        QVERIFY(again);
        const CliRun rerun = run({"update", m_package, "--json", "--overwrite", "--same-instrument"}, *again);
        QVERIFY2(rerun.exitCode == 0, rerun.out.constData());
        const QList<QJsonObject> objects = jsonLines(rerun.out);
        QCOMPARE(withoutElapsedTime(logLinesOf(objects)), updateLog);
        const QJsonObject result = objects.last();
        const qint64 images = member(QStringLiteral("MAIN207.BIN")).size() + member(QStringLiteral("TEXT_EN.BIN")).size()
                              + m_calibration.size();
        const qint64 written = result.value(QStringLiteral("bytesWritten")).toInteger();
        QCOMPARE(written + result.value(QStringLiteral("bytesAlreadyRight")).toInteger(), images);
        if (!withBoot) // the calibration data's sector held its final content: never erased
            QVERIFY2(written < images, qPrintable(QString::number(written)));
        QCOMPARE(again->stopAndDump(QStringLiteral("AM29F040"), 0), updatedMainChip());
        QCOMPARE(again->stopAndDump(QStringLiteral("AM29LV800"), LanguageChip), updatedLanguageChip());
        QCOMPARE(bytesOf(calibrationFile()), savedByTheFirstRun);
        // What the instrument held when it was read again, kept beside when it was not the same.
        QCOMPARE(bytesOf(calibrationFile() + QStringLiteral(".found-1")), withBoot ? QByteArray(CalibrationBytes, '\xFF') : QByteArray());
    }

    void aSecondUpdateOfAnUpdatedInstrumentWritesNothing()
    {
        auto updated = instrument(updatedMainChip(), updatedLanguageChip());
        QVERIFY(updated);
        const CliRun rerun = run({"update", m_package, "--json", "--overwrite"}, *updated);
        QCOMPARE(rerun.exitCode, 0);
        const QJsonObject result = jsonLines(rerun.out).last();
        QCOMPARE(result.value(QStringLiteral("bytesWritten")).toInteger(), 0);
        const QStringList lines = logLinesOf(jsonLines(rerun.out));
        QCOMPARE(lines.count(QStringLiteral("FlashDelete OK")), 2); // the Part's lines, though nothing was sent

        // --full erases and writes everything all the same.
        const CliRun full = run({"update", m_package, "--json", "--overwrite", "--full"}, *updated);
        QCOMPARE(full.exitCode, 0);
        QCOMPARE(jsonLines(full.out).last().value(QStringLiteral("bytesAlreadyRight")).toInteger(), 0);
        QCOMPARE(updated->stopAndDump(QStringLiteral("AM29F040"), 0), updatedMainChip());
    }

    void verifyComparesWithoutWriting_data()
    {
        QTest::addColumn<int>("changedAt"); // the address of a byte that is not the package's; -1 none
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("text");
        QTest::newRow("equal") << -1 << 0
                               << "The instrument holds the package's images.\n"
                                  "MAIN207.BIN (H10000, 98304 bytes): equal\n"
                                  "CAL-M7.BIN (H0, 1024 bytes): equal\n"
                                  "TEXT_EN.BIN (H100000, 12288 bytes): equal\n";
        QTest::newRow("one byte differs") << 0x1ABCD << 3
                                          << "The instrument differs from the package.\n"
                                             "MAIN207.BIN (H10000, 98304 bytes): differs, first at H1ABCD\n"
                                             "CAL-M7.BIN (H0, 1024 bytes): equal\n"
                                             "TEXT_EN.BIN (H100000, 12288 bytes): equal\n";
    }
    void verifyComparesWithoutWriting()
    {
        QFETCH(int, changedAt);
        QFETCH(int, exitCode);
        QFETCH(QString, text);
        QByteArray main = updatedMainChip();
        if (changedAt >= 0)
            main[changedAt] = char(~main[changedAt]);
        QVERIFY(writeFile(calibrationFile(), m_calibration));
        auto checked = instrument(main, updatedLanguageChip());
        QVERIFY(checked);
        const CliRun verify = run({"verify", m_package, "--quiet"}, *checked);
        QCOMPARE(verify.exitCode, exitCode);
        QCOMPARE(verify.text(), text);
        const CliRun json = run({"verify", m_package, "--json"}, *checked);
        const QJsonObject first = jsonLines(json.out).last().value(QStringLiteral("comparisons")).toArray().at(0).toObject();
        QCOMPARE(first.value(QStringLiteral("firstDifference")).toInteger(-1), qint64(changedAt));
        QCOMPARE(checked->stopAndDump(QStringLiteral("AM29F040"), 0), main); // nothing written
        QCOMPARE(bytesOf(calibrationFile()), m_calibration);
    }

    void readPutsAnyRangeIntoAFile()
    {
        auto source = instrument(oldMainChip(), oldLanguageChip());
        QVERIFY(source);
        const CliRun read = run({"read", m_package, "--range", "0xFF80,0x200", "--out", "part.bin", "--quiet"}, *source);
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(read.text(), QStringLiteral("The 512 bytes at HFF80 are in part.bin, checked against the instrument's CRC-32 of the range.\n"));
        QCOMPARE(bytesOf(path(QStringLiteral("part.bin"))), oldMainChip().mid(0xFF80, 0x200));
        QVERIFY(!QFile::exists(calibrationFile())); // the package's read-back files are left alone
    }

    // Data across the end of one sector and the start of the next: both are saved first and
    // written back whole, the data in place and every byte around it as it was; the package's
    // own read-back file goes back to its range.
    void restoreKeepsTheBytesAroundWhatItWritesBack_data()
    {
        QTest::addColumn<QStringList>("arguments"); // after the package
        QTest::addColumn<int>("address");
        QTest::addColumn<int>("length");
        QTest::newRow("a file across two sectors") << QStringList{"patch.bin", "--at", "0xFF00"} << 0xFF00 << 0x200;
        QTest::newRow("the package's read-back file, to its range") << QStringList{DemoPackage::CalibrationFile} << 0 << 0x400;
    }
    void restoreKeepsTheBytesAroundWhatItWritesBack()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, address);
        QFETCH(int, length);
        const QByteArray data = noise(length, 9);
        QVERIFY(writeFile(path(arguments.first()), data));
        QFile::remove(path(arguments.first() + QStringLiteral(".before-restore-1")));
        auto target = instrument(oldMainChip(), oldLanguageChip());
        QVERIFY(target);
        const CliRun restore = run(QStringList{"restore", m_package} + arguments + QStringList{"--quiet"}, *target);
        QVERIFY2(restore.exitCode == 0, restore.out.constData());
        QByteArray expected = oldMainChip();
        expected.replace(address, length, data);
        QCOMPARE(target->stopAndDump(QStringLiteral("AM29F040"), 0), expected);
        const int units = address + length > 0x10000 ? 2 : 1;
        QCOMPARE(bytesOf(path(arguments.first() + QStringLiteral(".before-restore-1"))), oldMainChip().left(units * 0x10000));
    }
};

QTEST_GUILESS_MAIN(RecoveryEndToEndTest)
#include "tst_recovery_e2e.moc"
