// The five entry records: fields, end addresses, file checks against the package, chip
// names, and the read-back file's overwrite question and working folder.
#include "config/QX_Download.h"
#include "config/UpdateJournal.h"
#include "config/QX_Erase.h"
#include "config/QX_Memory.h"
#include "config/QX_Program.h"
#include "config/QX_TransferProgram.h"
#include "tests/support/ScriptedPrompt.h"
#include "tests/support/TemporaryWorkingFolder.h"
#include "tests/support/TestPackage.h"

#include <QFile>
#include <QFileInfo>
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
        QTest::addColumn<QString>("message");
        QTest::newRow("hex with 0X") << "0X0, 0X80000, AM29F040" << 0 << 524288 << 524288 << 22 << "OK";
        QTest::newRow("0x and &H") << "0x20000,&H20000,I28F016" << 131072 << 131072 << 262144 << 23 << "OK";
        QTest::newRow("decimal") << "4096,4096,AM29LV800" << 4096 << 4096 << 8192 << 24 << "OK";
        QTest::newRow("top of the address space wraps to 0")
            << "0XFFF00000,0X100000,AM28F010" << int(0xFFF00000) << 0x100000 << 0 << 17 << "OK";
        QTest::newRow("chip names match with case") << "0X0,0X80000,am29f040" << 0 << 524288 << 524288 << 0
                                                    << "Flash Memory Name Invalid am29f040";
    }
    void memoryFields()
    {
        QFETCH(QString, value);
        QFETCH(int, start);
        QFETCH(int, length);
        QFETCH(int, end);
        QFETCH(int, index);
        QFETCH(QString, message);
        QX_Memory memory;
        QVERIFY(memory.Init(value)); // an unknown chip still makes an entry
        QCOMPARE(memory.StartAddress(), start);
        QCOMPARE(memory.Length(), length);
        QCOMPARE(memory.EndAddress(), end);
        QCOMPARE(memory.FlashnameIndex(), index);
        QCOMPARE(memory.Validate(), index != 0);
        QCOMPARE(memory.QX_Error_GetLastErrorString(), message);
    }

    void eraseFields_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("address");
        QTest::addColumn<int>("end");
        QTest::newRow("extra fields are ignored") << "0X40000,0X40000,99" << true << 0x40000 << 0x80000;
        QTest::newRow("eight digits are negative") << "0XFFFFFFFF,1" << true << -1 << 0;
        for (const char *value : {"0X40000", "12AB,0X100", ",0X100", "NA", "0X1FFFFFFFF,0X100"})
            QTest::addRow("malformed %s", value) << value << false << 0 << 0;
    }
    void eraseFields()
    {
        QFETCH(QString, value);
        QFETCH(bool, valid);
        QFETCH(int, address);
        QFETCH(int, end);
        QX_Erase erase;
        QCOMPARE(erase.Init(value), valid);
        QCOMPARE(erase.QX_Error_GetLastError(), 0); // a malformed value leaves the holder alone
        if (valid) {
            QCOMPARE(erase.EraseAddress(), address);
            QCOMPARE(erase.EndAddress(), end);
        } else {
            QX_Memory memory;
            QVERIFY(!memory.Init(value + QStringLiteral(",AM29F040")));
        }
    }

    void fieldsBeforeABadOneStaySet()
    {
        QX_Memory memory;
        QVERIFY(!memory.Init(QStringLiteral("0X100,zz,AM29F040")));
        QCOMPARE(memory.StartAddress(), 0x100);
        QCOMPARE(memory.Flashname(), QString());
    }

    void filesMustBeMembersOfThePackage_data()
    {
        QTest::addColumn<bool>("transfer");
        QTest::addColumn<int>("memberSize"); // -1: not in the package
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("end");
        QTest::addColumn<QString>("message");
        QTest::newRow("transfer program") << true << 3000 << 3000 << 7096 << "OK";
        QTest::newRow("transfer program missing") << true << -1 << 0 << 0 << "Transfer Entry invalid File Not Found IMG.BIN";
        QTest::newRow("transfer program empty") << true << 0 << 0 << 4096 << "Transfer Entry invalid File Is Empty IMG.BIN";
        QTest::newRow("image") << false << 1000 << 1000 << 5096 << "OK";
        QTest::newRow("image missing") << false << -1 << 0 << 0 << "Program Entry Invalid File Not Found IMG.BIN";
        QTest::newRow("image empty") << false << 0 << 0 << 4096 << "Program Entry Invalid File Is Empty IMG.BIN";
    }
    void filesMustBeMembersOfThePackage()
    {
        QFETCH(bool, transfer);
        QFETCH(int, memberSize);
        QFETCH(int, length);
        QFETCH(int, end);
        QFETCH(QString, message);
        TestPackage source;
        if (memberSize >= 0)
            source.member(QStringLiteral("IMG.BIN"), TestPackage::pattern(memberSize));
        const Package package = source.member(QStringLiteral("OTHER.BIN"), "x").write();
        const auto check = [&](const auto &entry) {
            QCOMPARE(entry.Validate(), message == QStringLiteral("OK"));
            QCOMPARE(entry.Length(), length);
            QCOMPARE(entry.EndAddress(), end);
            QCOMPARE(entry.QX_Error_GetLastErrorString(), message);
        };
        if (transfer) {
            QX_TransferProgram entry;
            QVERIFY(entry.Init(QStringLiteral("IMG.BIN,0X1000,0X1200"), QString(), package));
            QCOMPARE(entry.ExecAddress(), 0x1200);
            check(entry);
        } else {
            QX_Program entry;
            QVERIFY(entry.Init(QStringLiteral("0X1000, IMG.BIN"), QString(), package));
            check(entry);
            entry.setLength(0x100); // as the validation does for a read-back file of that name
            QVERIFY(entry.Validate());
            QCOMPARE(entry.EndAddress(), 0x1100);
        }
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

    // Each row in a fresh working folder that holds a folder SUB, a link INSIDE to it, a link
    // OUTSIDE to a folder elsewhere and a link GONE.BIN to a missing file there; {OUT} is
    // that folder elsewhere.
    void readBackFileIsPreparedOrRefused_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("existing");
        QTest::addColumn<bool>("answer");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("fileAfter"); // null: no file
        QTest::addColumn<QString>("why");          // the end of a refusal's message
        QTest::newRow("existing, overwrite declined") << "0,0X100,OUT.BIN" << true << false << 1 << QByteArray("calibration") << "";
        // Not truncated before the read-back replaces it.
        QTest::newRow("existing, overwrite accepted") << "0,0X100,OUT.BIN" << true << true << 0 << QByteArray("calibration") << "";
        QTest::newRow("missing is created without asking") << "0,16,OUT.BIN" << false << false << 0 << QByteArray("") << "";
        QTest::newRow("in a folder, through a link that stays inside") << "0,16,INSIDE/OUT.BIN" << false << false << 0 << QByteArray("")
                                                                       << "";
        QTest::newRow("dots that are no component") << "0,16,SUB/..OUT.BIN" << false << false << 0 << QByteArray("") << "";
        QTest::newRow("folder that cannot hold it") << "0,16,no/such/OUT.BIN" << false << false << 9 << QByteArray() << "";
        QTest::newRow("empty range") << "0,0,OUT.BIN" << false << false << 9 << QByteArray() << "";
        QTest::newRow("above the working folder") << "0,16,../OUT.BIN" << false << false << 9 << QByteArray()
                                                  << "; a \"..\" in it leads out of the folder";
        QTest::newRow("a Windows \"..\"") << "0,16,SUB\\..\\..\\OUT.BIN" << false << false << 9 << QByteArray()
                                          << "; a \"..\" in it leads out of the folder";
        QTest::newRow("an absolute path, even an existing file") << "0,16,{OUT}/OUT.BIN" << true << true << 9
                                                                 << QByteArray("calibration") << "; it is an absolute path";
        QTest::newRow("a Windows root") << "0,16,\\OUT.BIN" << false << false << 9 << QByteArray() << "; it is an absolute path";
        QTest::newRow("a drive letter") << "0,16,C:OUT.BIN" << false << false << 9 << QByteArray() << "; it names a drive";
        QTest::newRow("a linked folder outside") << "0,16,OUTSIDE/OUT.BIN" << false << false << 9 << QByteArray()
                                                 << "; a symbolic link on its way leads out of the folder";
        QTest::newRow("a link to a missing file outside") << "0,16,GONE.BIN" << false << false << 9 << QByteArray()
                                                          << "; a symbolic link on its way leads out of the folder";
    }
    void readBackFileIsPreparedOrRefused()
    {
        QFETCH(QString, value);
        QFETCH(bool, existing);
        QFETCH(bool, answer);
        QFETCH(int, code);
        QFETCH(QByteArray, fileAfter);
        QFETCH(QString, why);
        TemporaryWorkingFolder folder;
        QTemporaryDir elsewhere;
        QVERIFY(QDir().mkdir(QStringLiteral("SUB")) && QFile::link(QStringLiteral("SUB"), QStringLiteral("INSIDE"))
                && QFile::link(elsewhere.path(), QStringLiteral("OUTSIDE"))
                && QFile::link(elsewhere.filePath(QStringLiteral("GONE.BIN")), QStringLiteral("GONE.BIN")));
        QX_Download download;
        QVERIFY(download.Init(value.replace(QStringLiteral("{OUT}"), elsewhere.path()), QString()));
        QFile file(download.Filename());
        if (existing) {
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("calibration") == 11);
            file.close();
        }
        ScriptedPrompt prompt;
        prompt.answers = {answer};
        QCOMPARE(download.Validate(prompt, UpdateJournal()), code == 0);
        QCOMPARE(download.QX_Error_GetLastError(), code);
        QCOMPARE(prompt.questions.size(), existing && why.isEmpty() ? 1 : 0);
        if (code == 1)
            QCOMPARE(download.QX_Error_GetLastErrorString(), QStringLiteral("Filename Invalid ") + download.Filename());
        if (!why.isEmpty())
            QCOMPARE(download.QX_Error_GetLastErrorString(),
                     QStringLiteral("Upload Entry Invalid %1: the file must lie inside the working folder %2%3")
                         .arg(download.Filename(), QDir::current().canonicalPath(), why));
        QCOMPARE(QFileInfo::exists(download.Filename()), !fileAfter.isNull());
        QCOMPARE(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(), fileAfter);
        QVERIFY(QDir(elsewhere.path()).entryList(QDir::Files).isEmpty() || existing); // nothing was made outside
    }
};

QTEST_GUILESS_MAIN(EntryRecordsTest)
#include "tst_entry_records.moc"
