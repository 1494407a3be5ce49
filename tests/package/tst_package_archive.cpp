// The package archive reader, the one-member cache, text members, the package builder, and
// archives that are broken, truncated, forged or not archives at all.
#include "tests/support/TestPackage.h"
#include "tools/package-builder/PackageBuilder.h"
#include "package/PackageAccess.h"
#include "package/PackageArchiveReader.h"
#include "package/PackagePath.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <array>

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
}

PackageArchiveReader &readerOn(const QString &archive, const QString &member)
{
    PackageArchiveReader &reader = PackageArchiveReader::instance();
    reader.reset();
    reader.setArchivePath(archive);
    reader.setMemberName(member);
    return reader;
}

// Every uncompressed-size field of the archive's headers set to value: the local header
// (offset 22) and the central directory entry (offset 24) of each member.
QByteArray withForgedSizes(QByteArray zip, quint32 value)
{
    for (qsizetype at = zip.indexOf("PK\x03\x04"); at >= 0; at = zip.indexOf("PK\x03\x04", at + 4))
        qToLittleEndian(value, zip.data() + at + 22);
    for (qsizetype at = zip.indexOf("PK\x01\x02"); at >= 0; at = zip.indexOf("PK\x01\x02", at + 4))
        qToLittleEndian(value, zip.data() + at + 24);
    return zip;
}

} // namespace

class PackageArchiveTest : public QObject {
    Q_OBJECT
private slots:
    void init() { ClearPackageFileCache(); }

    void commentAndMembers()
    {
        TestPackage package;
        const QString path = package.member(QStringLiteral("KDCONFIG.INI"), "[HOST]")
                                 .member(QStringLiteral("readme.txt"), "lower")
                                 .comment(QStringLiteral("Firmware 2.07 for the Model 7"))
                                 .select();
        PackageArchiveReader &reader = readerOn(path, QStringLiteral("KDCONFIG.INI"));
        QCOMPARE(reader.commentSize(), 29);
        QCOMPARE(reader.comment(), QStringLiteral("Firmware 2.07 for the Model 7"));
        QCOMPARE(reader.countMatching(), 1);
        QCOMPARE(reader.memberSize(), 6);
        QCOMPARE(readerOn(path, QStringLiteral("Readme.txt")).countMatching(), 0); // names match exactly
        QCOMPARE(readerOn(path, QStringLiteral("KDCONFIG")).countMatching(), 0);

        TestPackage bare;
        QCOMPARE(readerOn(bare.member(QStringLiteral("A"), "a").select(), QStringLiteral("A")).commentSize(), 0);
    }

    void textSlices()
    {
        TestPackage package;
        const QString path = package.member(QStringLiteral("T.TXT"), "0123456789").select();
        PackageArchiveReader &reader = readerOn(path, QStringLiteral("T.TXT"));
        int32_t delivered = -1;
        QCOMPARE(reader.extractText(0, 4, delivered), QStringLiteral("0123"));
        QCOMPARE(delivered, 4);
        QCOMPARE(reader.extractText(8, 4, delivered), QStringLiteral("89"));
        QCOMPARE(delivered, 2);
        QCOMPARE(reader.extractText(10, 4, delivered), QString());
        QCOMPARE(delivered, 0);
    }

    void existsAndSize()
    {
        TestPackage package;
        package.member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(1000)).select();
        QVERIFY(PackageFileExists(QStringLiteral("MAIN.BIN")));
        QCOMPARE(PackageFileSize(QStringLiteral("MAIN.BIN")), 1000);
        QVERIFY(!PackageFileExists(QStringLiteral("GONE.BIN")));
        QCOMPARE(PackageFileSize(QStringLiteral("GONE.BIN")), 0);
    }

    void blockReadsExtractOnce()
    {
        TestPackage package;
        const QByteArray image = TestPackage::pattern(1000, 3);
        package.member(QStringLiteral("MAIN.BIN"), image).select();
        const int64_t fillsBefore = PackageFileCacheFills();
        std::array<uint8_t, 4001> block{};
        QByteArray collected;
        for (int32_t offset = 0; offset < 1000; offset += 240) {
            const int32_t n = ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, offset);
            QCOMPARE(n, std::min(240, 1000 - offset));
            collected.append(reinterpret_cast<const char *>(block.data()), n);
        }
        QCOMPARE(collected, image);
        QCOMPARE(PackageFileCacheFills() - fillsBefore, 1);
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, 1000), 0);
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, 5000), 0);
        QCOMPARE(ReadPackageFile(QStringLiteral("GONE.BIN"), block.data(), 240, 0), 0);
    }

    void anotherPackageOrMemberRefillsTheCache()
    {
        TestPackage first(QStringLiteral("first.KDPKG")), second(QStringLiteral("second.KDPKG"));
        first.member(QStringLiteral("MAIN.BIN"), "first package").member(QStringLiteral("B.BIN"), "bee").select();
        second.member(QStringLiteral("MAIN.BIN"), "second package").select();
        std::array<uint8_t, 64> block{};
        PackagePath = first.path();
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 64, 0), 13);
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(block.data()), 13), QByteArray("first package"));
        PackagePath = second.path();
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 64, 0), 14);
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(block.data()), 14), QByteArray("second package"));
        PackagePath = first.path();
        const int64_t fills = PackageFileCacheFills();
        QCOMPARE(ReadPackageFile(QStringLiteral("B.BIN"), block.data(), 64, 0), 3);
        QCOMPARE(PackageFileCacheFills(), fills + 1);
    }

    void textMembersInPieces()
    {
        TestPackage package;
        QByteArray longText;
        for (int i = 0; longText.size() < 12345; ++i)
            longText += "line " + QByteArray::number(i) + "\r\n";
        longText.truncate(12345);
        package.member(QStringLiteral("Readme.txt"), longText).member(QStringLiteral("Final.txt"), QByteArray()).select();
        QCOMPARE(ReadPackageText(QStringLiteral("Readme.txt")).value().toLatin1(), longText);
        QCOMPARE(ReadPackageText(QStringLiteral("Final.txt")), std::optional<QString>(QString()));
        QVERIFY(!ReadPackageText(QStringLiteral("KDNOTES.TXT")).has_value());
    }

    void brokenFilesReadAsArchivesWithoutMembers_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("random bytes") << TestPackage::pattern(10000, 5);
        QTest::newRow("zip signature only") << QByteArray("PK\x03\x04");
        TestPackage real;
        real.member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(5000)).select();
        const QByteArray whole = readFile(real.path());
        QTest::newRow("truncated archive") << whole.left(whole.size() / 2);
        QTest::newRow("archive without its last byte") << whole.chopped(1);
    }
    void brokenFilesReadAsArchivesWithoutMembers()
    {
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("broken.KDPKG"));
        writeFile(path, bytes);
        PackagePath = path;
        PackageArchiveReader &reader = readerOn(path, QStringLiteral("MAIN.BIN"));
        QCOMPARE(reader.countMatching(), 0);
        QCOMPARE(reader.memberSize(), 0);
        QCOMPARE(reader.commentSize(), 0);
        QVERIFY(!PackageFileExists(QStringLiteral("MAIN.BIN")));
        std::array<uint8_t, 240> block{};
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, 0), 0);
        QVERIFY(!ReadPackageText(QStringLiteral("MAIN.BIN")).has_value());

        PackagePath = dir.filePath(QStringLiteral("missing.KDPKG"));
        QVERIFY(!PackageFileExists(QStringLiteral("MAIN.BIN")));
    }

    void aForgedHugeSizeIsRefusedWithoutAllocating()
    {
        TestPackage real;
        real.member(QStringLiteral("MAIN.BIN"), QByteArray(100, 'm')).select();
        QTemporaryDir dir;
        const QString forged = dir.filePath(QStringLiteral("forged.KDPKG"));
        writeFile(forged, withForgedSizes(readFile(real.path()), 0xFFFFFFF0u));
        PackagePath = forged;
        QCOMPARE(readerOn(forged, QStringLiteral("MAIN.BIN")).countMatching(), 0);
        QCOMPARE(PackageFileSize(QStringLiteral("MAIN.BIN")), 0);
        std::array<uint8_t, 240> block{};
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, 0), 0);
    }

    void damagedDataIsUnreadable()
    {
        TestPackage real;
        // Compressible, so it is stored deflated; flip bytes in the middle of its data.
        real.member(QStringLiteral("MAIN.BIN"), QByteArray(20000, 'a') + TestPackage::pattern(20000)).select();
        QByteArray zip = readFile(real.path());
        const qsizetype data = zip.indexOf("MAIN.BIN") + 8 + 200;
        for (qsizetype i = 0; i < 16; ++i)
            zip[data + i] = static_cast<char>(zip[data + i] ^ 0x5A);
        QTemporaryDir dir;
        const QString damaged = dir.filePath(QStringLiteral("damaged.KDPKG"));
        writeFile(damaged, zip);
        PackagePath = damaged;
        QByteArray bytes;
        QVERIFY(!readerOn(damaged, QStringLiteral("MAIN.BIN")).extractBytes(bytes));
        std::array<uint8_t, 240> block{};
        QCOMPARE(ReadPackageFile(QStringLiteral("MAIN.BIN"), block.data(), 240, 0), 0);
    }

    void builderPacksAFolder()
    {
        QTemporaryDir src, out;
        writeFile(src.filePath(QStringLiteral("KDCONFIG.INI")), "[HOST]\r\n");
        writeFile(src.filePath(QStringLiteral("MAIN.BIN")), TestPackage::pattern(777));
        QVERIFY(QDir(src.path()).mkdir(QStringLiteral("sub"))); // folders are not members
        const QString path = out.filePath(QStringLiteral("p.KDPKG"));
        QString error;
        QVERIFY2(PackageBuilder::fromFolder(src.path(), path, QStringLiteral("Demo"), &error), qPrintable(error));
        PackagePath = path;
        QCOMPARE(PackageFileSize(QStringLiteral("MAIN.BIN")), 777);
        QVERIFY(PackageFileExists(QStringLiteral("KDCONFIG.INI")));
        QVERIFY(!PackageFileExists(QStringLiteral("sub")));
        QCOMPARE(readerOn(path, QString()).comment(), QStringLiteral("Demo"));

        QVERIFY(!PackageBuilder::fromFolder(src.filePath(QStringLiteral("nope")), path, QString(), &error));
        QVERIFY(error.contains(QStringLiteral("no such folder")));
    }

    void mkpkgTool()
    {
        QTemporaryDir src, out;
        writeFile(src.filePath(QStringLiteral("KDCONFIG.INI")), "[HOST]\r\n");
        QProcess tool;
        tool.start(QStringLiteral(VARNOLT_MKPKG), {});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 2);
        QVERIFY(tool.readAllStandardError().contains("usage"));

        const QString path = out.filePath(QStringLiteral("t.KDPKG"));
        tool.start(QStringLiteral(VARNOLT_MKPKG), {path, src.path(), QStringLiteral("--comment"), QStringLiteral("Tool made")});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 0);
        QCOMPARE(readerOn(path, QString()).comment(), QStringLiteral("Tool made"));

        tool.start(QStringLiteral(VARNOLT_MKPKG), {path, out.filePath(QStringLiteral("missing"))});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 1);
    }
};

QTEST_GUILESS_MAIN(PackageArchiveTest)
#include "tst_package_archive.moc"
