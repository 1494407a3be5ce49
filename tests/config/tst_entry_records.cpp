// The five entry records: fields, end addresses, file checks, chip names, the overwrite
// question of read-back files.
#include "config/QX_Download.h"
#include "config/QX_Erase.h"
#include "config/QX_Memory.h"
#include "config/QX_Program.h"
#include "config/QX_TransferProgram.h"
#include "config/TextFormat.h"
#include "tests/support/ScriptedPrompt.h"
#include "tests/support/TestPackage.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class EntryRecordsTest : public QObject {
    Q_OBJECT
private slots:
    void memoryFields_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("end");
        QTest::addColumn<int>("index");
        QTest::newRow("hex with 0X") << "0X0, 0X80000, AM29F040" << 0 << 524288 << 524288 << 22;
        QTest::newRow("0x and &H") << "0x20000,&H20000,I28F016" << 131072 << 131072 << 262144 << 23;
        QTest::newRow("decimal") << "4096,4096,AM29LV800" << 4096 << 4096 << 8192 << 24;
        QTest::newRow("top of the address space wraps to 0")
            << "0XFFF00000,0X100000,AM28F010" << int(0xFFF00000) << 0x100000 << 0 << 17;
    }
    void memoryFields()
    {
        QFETCH(QString, value);
        QFETCH(int, start);
        QFETCH(int, length);
        QFETCH(int, end);
        QFETCH(int, index);
        QX_Memory memory;
        QVERIFY(memory.Init(value));
        QCOMPARE(memory.StartAddress(), start);
        QCOMPARE(memory.Length(), length);
        QCOMPARE(memory.EndAddress(), end);
        QCOMPARE(memory.FlashnameIndex(), index);
        QVERIFY(memory.Validate());
        QCOMPARE(memory.QX_Error_GetLastError(), 0);
    }

    void everyChipOfTheFlashTable()
    {
        const QStringList chips = {"AM28F010", "I28F010", "AM28F020", "I28F020",
                                   "AM29F010", "AM29F040", "I28F016", "AM29LV800"};
        for (int i = 0; i < chips.size(); ++i) {
            QX_Memory memory;
            QVERIFY(memory.Init(QStringLiteral("0,1,") + chips[i]));
            QCOMPARE(memory.FlashnameIndex(), 17 + i);
        }
    }

    void unknownChipIsCreatedButInvalid()
    {
        QX_Memory memory;
        QVERIFY(memory.Init(QStringLiteral("0X0,0X80000,am29f040")));
        QVERIFY(!memory.Validate());
        QCOMPARE(memory.FlashnameIndex(), 0);
        QCOMPARE(memory.QX_Error_GetLastErrorString(), QStringLiteral("Flash Memory Name Invalid am29f040"));
    }

    void malformedValuesFailInit_data()
    {
        QTest::addColumn<QString>("value");
        QTest::newRow("one field") << "0X40000";
        QTest::newRow("letters") << "12AB,0X100";
        QTest::newRow("empty field") << ",0X100";
        QTest::newRow("NA") << "NA";
        QTest::newRow("overflow") << "0X1FFFFFFFF,0X100";
    }
    void malformedValuesFailInit()
    {
        QFETCH(QString, value);
        QX_Erase erase;
        QVERIFY(!erase.Init(value));
        QX_Memory memory;
        QVERIFY(!memory.Init(value + QStringLiteral(",AM29F040")));
        QCOMPARE(erase.QX_Error_GetLastError(), 0); // a malformed value leaves the holder alone
    }

    void fieldsBeforeABadOneStaySet()
    {
        QX_Memory memory;
        QVERIFY(!memory.Init(QStringLiteral("0X100,zz,AM29F040")));
        QCOMPARE(memory.StartAddress(), 0x100);
        QCOMPARE(memory.Flashname(), QString());
    }

    void eraseIgnoresExtraFields()
    {
        QX_Erase erase;
        QVERIFY(erase.Init(QStringLiteral("0X40000,0X40000,99")));
        QCOMPARE(erase.EraseAddress(), 0x40000);
        QCOMPARE(erase.EndAddress(), 524288);
        QCOMPARE(TextFormat::hex(erase.Length()), QStringLiteral("40000"));
    }

    void eightDigitAddressesAreNegative()
    {
        QX_Erase erase;
        QVERIFY(erase.Init(QStringLiteral("0XFFFFFFFF,1")));
        QCOMPARE(erase.EraseAddress(), -1);
        QCOMPARE(TextFormat::hex(erase.EraseAddress()), QStringLiteral("FFFFFFFF"));
    }

    void transferProgramTakesItsLengthFromThePackage()
    {
        TestPackage package;
        const Package written = package.member(QStringLiteral("TP.BIN"), TestPackage::pattern(3000)).write();
        QX_TransferProgram transfer;
        QVERIFY(transfer.Init(QStringLiteral("TP.BIN,0X1000,0X1000"), QString(), written));
        QVERIFY(transfer.Validate());
        QCOMPARE(transfer.Length(), 3000);
        QCOMPARE(transfer.LoadAddress(), 4096);
        QCOMPARE(transfer.EndAddress(), 7096);
        QCOMPARE(transfer.ExecAddress(), 4096);
    }

    void transferProgramMissingFromThePackage()
    {
        TestPackage package;
        const Package written = package.member(QStringLiteral("OTHER.BIN"), "x").write();
        QX_TransferProgram transfer;
        QVERIFY(transfer.Init(QStringLiteral("TP.BIN,0X1000,0X1000"), QString(), written));
        QVERIFY(!transfer.Validate());
        QCOMPARE(transfer.EndAddress(), 0);
        QCOMPARE(transfer.QX_Error_GetLastErrorString(), QStringLiteral("Transfer Entry invalid File Not Found TP.BIN"));
    }

    void programEntryFileCheckAndLength()
    {
        TestPackage package;
        const Package written = package.member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(1000)).write();
        QX_Program program;
        QVERIFY(program.Init(QStringLiteral("0X10000, MAIN.BIN"), QString(), written));
        QVERIFY(program.Validate());
        QCOMPARE(program.Length(), 1000);
        QCOMPARE(program.EndAddress(), 0x10000 + 1000);

        QX_Program missing;
        QVERIFY(missing.Init(QStringLiteral("0X10000,CAL.BIN"), QString(), written));
        QVERIFY(!missing.Validate());
        QCOMPARE(missing.EndAddress(), 0);
        QCOMPARE(missing.QX_Error_GetLastErrorString(), QStringLiteral("Program Entry Invalid File Not Found CAL.BIN"));
        missing.setLength(0x100); // as the validation does for a read-back file of that name
        QVERIFY(missing.Validate());
        QCOMPARE(missing.EndAddress(), 0x10100);
    }

    void fileNamesWithADriveOrRootStandAsWritten()
    {
        QX_Program program;
        program.Init(QStringLiteral("0X0,C:\\IMG.BIN"), QStringLiteral("pkg/"), Package());
        QCOMPARE(program.Filename(), QStringLiteral("C:\\IMG.BIN"));
        program.Init(QStringLiteral("0X0,\\IMG.BIN"), QStringLiteral("pkg/"), Package());
        QCOMPARE(program.Filename(), QStringLiteral("\\IMG.BIN"));
        program.Init(QStringLiteral("0X0,IMG.BIN"), QStringLiteral(" pkg/ "), Package());
        QCOMPARE(program.Filename(), QStringLiteral("pkg/IMG.BIN"));
    }

    void downloadOverwriteQuestion()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("OUT.BIN"));
        QFile existing(path);
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.write("calibration");
        existing.close();

        QX_Download download;
        QVERIFY(download.Init(QStringLiteral("0X0,0X100,") + path, QString()));
        QCOMPARE(download.EndAddress(), 0x100);

        ScriptedPrompt prompt;
        prompt.answers = {false};
        QVERIFY(!download.Validate(prompt));
        QCOMPARE(prompt.questions, QStringList{QStringLiteral("Download Instrument Memory|File Exists ! :\r\n") + path
                                               + QStringLiteral("\r\n Do you want to overwite the file?")});
        QCOMPARE(download.QX_Error_GetLastErrorString(), QStringLiteral("Filename Invalid ") + path);

        prompt.answers = {true};
        QVERIFY(download.Validate(prompt));
        QFile kept(path);
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("calibration")); // not truncated before the read-back
    }

    void downloadCreatesAMissingFileWithoutAsking()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("NEW.BIN"));
        QX_Download download;
        QVERIFY(download.Init(QStringLiteral("0,16,") + path, QString()));
        ScriptedPrompt prompt;
        QVERIFY(download.Validate(prompt));
        QVERIFY(prompt.questions.isEmpty());
        QVERIFY(QFileInfo::exists(path));
        QCOMPARE(QFileInfo(path).size(), 0);
    }

    void downloadIntoAFolderThatCannotHoldIt()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("no/such/folder/OUT.BIN"));
        QX_Download download;
        QVERIFY(download.Init(QStringLiteral("0,16,") + path, QString()));
        ScriptedPrompt prompt;
        QVERIFY(!download.Validate(prompt));
        QCOMPARE(download.QX_Error_GetLastError(), 9);
        QVERIFY(download.QX_Error_GetLastErrorString().size() > QStringLiteral("Upload Entry Invalid").size());
    }
};

QTEST_GUILESS_MAIN(EntryRecordsTest)
#include "tst_entry_records.moc"
