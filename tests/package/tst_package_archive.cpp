// The package: members found, sized and read in blocks through the shared one-member cache,
// text members, the package builder, and archives that are broken, truncated, forged or not
// archives at all.
#include "tests/support/TestPackage.h"
#include "tools/package-builder/PackageBuilder.h"

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

// The archive file of a package holding one member.
QByteArray archiveOf(const QString &name, const QByteArray &data)
{
    TestPackage package;
    package.member(name, data).write();
    return readFile(package.path());
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

// Bytes of member name from offset, read as the programming pass does.
QByteArray readAt(const Package &package, const QString &name, int32_t count, int32_t offset)
{
    std::array<uint8_t, 4001> block{};
    const int32_t n = package.ReadPackageFile(name, block.data(), count, offset);
    return QByteArray(reinterpret_cast<const char *>(block.data()), std::max(n, 0));
}

} // namespace

class PackageArchiveTest : public QObject {
    Q_OBJECT
private slots:
    void membersMatchExactlyAndAbsentOnesHaveSizeZero()
    {
        TestPackage source;
        const Package package = source.member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(1000))
                                    .member(QStringLiteral("readme.txt"), "lower")
                                    .comment(QStringLiteral("Firmware 2.07 f\u00FCr das Model 7 \u2013 \u201EBeta\u201C"))
                                    .write();
        QCOMPARE(package.comment(), std::optional<QString>(QStringLiteral("Firmware 2.07 f\u00FCr das Model 7 \u2013 \u201EBeta\u201C")));
        QVERIFY(package.PackageFileExists(QStringLiteral("MAIN.BIN")));
        QCOMPARE(package.PackageFileSize(QStringLiteral("MAIN.BIN")), 1000);
        for (const QString &absent : {QStringLiteral("GONE.BIN"), QStringLiteral("Readme.txt"), QStringLiteral("MAIN")}) {
            QVERIFY(!package.PackageFileExists(absent));
            QCOMPARE(package.PackageFileSize(absent), 0);
        }
        TestPackage bare;
        QCOMPARE(bare.member(QStringLiteral("A"), "a").write().comment(), std::nullopt);
    }

    void blocksOfOneMemberAreExtractedOnceForEveryCopy()
    {
        TestPackage source;
        const QByteArray image = TestPackage::pattern(1000, 3);
        const Package package = source.member(QStringLiteral("MAIN.BIN"), image).write();
        const Package engineCopy = package; // as the window hands it to the engine
        QByteArray collected;
        for (int32_t offset = 0; offset < 1000; offset += 240)
            collected += readAt(offset % 480 ? engineCopy : package, QStringLiteral("MAIN.BIN"), 240, offset);
        QCOMPARE(collected, image); // the last block is the 40 bytes that exist
        QCOMPARE(package.cacheFills(), 1);
        QCOMPARE(readAt(package, QStringLiteral("MAIN.BIN"), 240, 1000), QByteArray());
        QCOMPARE(readAt(package, QStringLiteral("MAIN.BIN"), 240, 5000), QByteArray());
        QCOMPARE(readAt(package, QStringLiteral("GONE.BIN"), 240, 0), QByteArray());
        QCOMPARE(engineCopy.cacheFills(), 2);
    }

    void aMemberOfTheSameNameInAnotherPackageIsThatPackagesOwn()
    {
        TestPackage first(QStringLiteral("first.KDPKG")), second(QStringLiteral("second.KDPKG"));
        const Package one = first.member(QStringLiteral("MAIN.BIN"), "first package").member(QStringLiteral("B.BIN"), "bee").write();
        const Package two = second.member(QStringLiteral("MAIN.BIN"), "second package").write();
        QCOMPARE(readAt(one, QStringLiteral("MAIN.BIN"), 64, 0), QByteArray("first package"));
        QCOMPARE(readAt(two, QStringLiteral("MAIN.BIN"), 64, 0), QByteArray("second package"));
        QCOMPARE(readAt(one, QStringLiteral("B.BIN"), 64, 0), QByteArray("bee"));
        QCOMPARE(readAt(one, QStringLiteral("MAIN.BIN"), 64, 0), QByteArray("first package"));
        QCOMPARE(one.cacheFills(), 3); // another member replaces the one kept
    }

    // Text members whole and their first 256 bytes (the notes), as UTF-8 when they are valid
    // UTF-8 and as Windows-1252 otherwise.
    void textMembersAreDecoded_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("whole");
        QTest::addColumn<QString>("first256");
        QByteArray longText;
        for (int i = 0; longText.size() < 12345; ++i)
            longText += "line " + QByteArray::number(i) + "\r\n";
        QTest::newRow("longer than a read piece") << longText << QString::fromLatin1(longText) << QString::fromLatin1(longText.left(256));
        QTest::newRow("empty") << QByteArray("") << "" << "";
        const QString german = QStringLiteral("Gr\u00FC\u00DFe \u2013 Firmware \u201E2.07\u201C \u2713");
        QTest::newRow("UTF-8") << german.toUtf8() << german << german;
        QTest::newRow("UTF-8 behind a byte order mark") << QByteArray("\xEF\xBB\xBFNotes") << "Notes" << "Notes";
        QTest::newRow("Windows-1252 punctuation") << QByteArray("\x93Quoted\x94 \x96 5 \x80, \x85")
                                                  << QStringLiteral("\u201CQuoted\u201D \u2013 5 \u20AC, \u2026")
                                                  << QStringLiteral("\u201CQuoted\u201D \u2013 5 \u20AC, \u2026");
        QTest::newRow("Windows-1252 letters") << QByteArray("Gr\xFC\xDF" "e") << QStringLiteral("Gr\u00FC\u00DFe")
                                              << QStringLiteral("Gr\u00FC\u00DFe");
        QTest::newRow("one broken UTF-8 sequence makes it Windows-1252")
            << QByteArray("\xE2\x80\x93 caf\xC3") << QStringLiteral("\u00E2\u20AC\u201C caf\u00C3")
            << QStringLiteral("\u00E2\u20AC\u201C caf\u00C3");
        QTest::newRow("an overlong UTF-8 form is no UTF-8") << QByteArray("\xC0\xAF") << QStringLiteral("\u00C0\u00AF")
                                                           << QStringLiteral("\u00C0\u00AF");
        const QByteArray a255(255, 'a');
        QTest::newRow("a UTF-8 character across byte 256 is left out")
            << a255 + "\xE2\x80\x93" << QString::fromLatin1(a255) + QChar(0x2013) << QString::fromLatin1(a255);
        QTest::newRow("a UTF-8 character ending at byte 256 stays")
            << a255.chopped(1) + "\xC3\xA9" + "b" << QString::fromLatin1(a255.chopped(1)) + QStringLiteral("\u00E9b")
            << QString::fromLatin1(a255.chopped(1)) + QStringLiteral("\u00E9");
        QTest::newRow("Windows-1252 is cut at byte 256") << a255 + "\x96\x96" << QString::fromLatin1(a255) + QStringLiteral("\u2013\u2013")
                                                         << QString::fromLatin1(a255) + QStringLiteral("\u2013");
    }
    void textMembersAreDecoded()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, whole);
        QFETCH(QString, first256);
        TestPackage source;
        const Package package = source.member(QStringLiteral("KDNOTES.TXT"), bytes).write();
        QCOMPARE(package.readText(QStringLiteral("KDNOTES.TXT")), std::optional<QString>(whole));
        QCOMPARE(package.readTextPrefix(QStringLiteral("KDNOTES.TXT"), 256), std::optional<QString>(first256));
        QCOMPARE(package.readPrefix(QStringLiteral("KDNOTES.TXT"), 256), std::optional<QByteArray>(bytes.left(256)));
        QCOMPARE(package.readText(QStringLiteral("Final.txt")), std::nullopt);
    }

    void unreadableArchivesAndMembersDeliverNothing_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("exists");
        QTest::addColumn<int>("size");
        QTest::newRow("no file") << QByteArray() << false << 0;
        QTest::newRow("empty file") << QByteArray("") << false << 0;
        QTest::newRow("random bytes") << TestPackage::pattern(10000, 5) << false << 0;
        QTest::newRow("zip signature only") << QByteArray("PK\x03\x04") << false << 0;
        const QByteArray whole = archiveOf(QStringLiteral("MAIN.BIN"), TestPackage::pattern(5000));
        QTest::newRow("truncated archive") << whole.left(whole.size() / 2) << false << 0;
        QTest::newRow("archive without its last byte") << whole.chopped(1) << false << 0;
        // A forged huge size is refused before anything is allocated.
        QTest::newRow("forged member size") << withForgedSizes(archiveOf(QStringLiteral("MAIN.BIN"), QByteArray(100, 'm')),
                                                               0xFFFFFFF0u)
                                            << false << 0;
        // Compressible, so it is stored deflated; bytes flipped in the middle of its data.
        QByteArray damaged = archiveOf(QStringLiteral("MAIN.BIN"), QByteArray(20000, 'a') + TestPackage::pattern(20000));
        const qsizetype data = damaged.indexOf("MAIN.BIN") + 8 + 200;
        for (qsizetype i = 0; i < 16; ++i)
            damaged[data + i] = static_cast<char>(damaged[data + i] ^ 0x5A);
        QTest::newRow("damaged member data") << damaged << true << 40000;
    }
    void unreadableArchivesAndMembersDeliverNothing()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, exists);
        QFETCH(int, size);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("broken.KDPKG"));
        if (!bytes.isNull())
            writeFile(path, bytes);
        const Package package(path);
        QCOMPARE(package.PackageFileExists(QStringLiteral("MAIN.BIN")), exists);
        QCOMPARE(package.PackageFileSize(QStringLiteral("MAIN.BIN")), size);
        QCOMPARE(readAt(package, QStringLiteral("MAIN.BIN"), 240, 0), QByteArray());
        QCOMPARE(package.readText(QStringLiteral("MAIN.BIN")), std::nullopt);
        QCOMPARE(package.readTextPrefix(QStringLiteral("MAIN.BIN"), 5000), std::nullopt);
        QCOMPARE(package.comment(), std::nullopt);
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
        const Package package(path);
        QCOMPARE(package.members(), (QList<QPair<QString, int64_t>>{{"KDCONFIG.INI", 8}, {"MAIN.BIN", 777}}));
        QCOMPARE(package.comment(), std::optional<QString>(QStringLiteral("Demo")));

        QVERIFY(!PackageBuilder::fromFolder(src.filePath(QStringLiteral("nope")), path, QString(), &error));
        QVERIFY(error.contains(QStringLiteral("no such folder")));
    }

    void mkpkgTool()
    {
        QTemporaryDir src, out;
        writeFile(src.filePath(QStringLiteral("KDCONFIG.INI")), "[HOST]\r\n");
        const QString path = out.filePath(QStringLiteral("t.KDPKG"));
        QProcess tool;
        const auto run = [&](const QStringList &args) {
            tool.start(QStringLiteral(VARNOLT_MKPKG), args);
            return tool.waitForFinished() ? tool.exitCode() : -1;
        };
        QCOMPARE(run({}), 2);
        QVERIFY(tool.readAllStandardError().contains("usage"));
        QCOMPARE(run({path, src.path(), QStringLiteral("--comment"), QStringLiteral("Tool made")}), 0);
        QCOMPARE(Package(path).comment(), std::optional<QString>(QStringLiteral("Tool made")));
        QCOMPARE(run({path, out.filePath(QStringLiteral("missing"))}), 1);
    }
};

QTEST_GUILESS_MAIN(PackageArchiveTest)
#include "tst_package_archive.moc"
