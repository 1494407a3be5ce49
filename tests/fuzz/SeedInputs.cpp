#include "tests/fuzz/SeedInputs.h"

#include "tools/package-builder/PackageBuilder.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstring>

namespace {

const char *const Configuration =
    "[HOST]\r\nMAXPROGLEN=240\r\nPORTS=COM1,COM2,GPIB0\r\nUART=COM1\r\nGPIB0=number 6\r\nBAUD=115200\r\n"
    "CONTINUE=NO\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\nFIRMWARE_LANGUAGES=ENGLISH,GERMAN\r\n"
    "FIRMWARE_LANGUAGE=ENGLISH\r\n[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
    "MEMORY=0X0,0X80000,AM29F040 ; boot\r\nMEMORY1=0XFFF00000,0X100000,I28F016\r\nERASE=0X10000,0X70000\r\n"
    "[FILES]\r\nUPLOAD=0X0,0X10000,/dev/null\r\nPROGRAM=0X10000,MAIN.BIN\r\n[ENGLISH]\r\nPROGRAM1=0X60000,MAIN.BIN\r\n"
    "[GERMAN]\r\nPROGRAM1=0X60000,TP.BIN\r\n";

std::vector<uint8_t> withMode(uint8_t mode, const QByteArray &bytes)
{
    std::vector<uint8_t> input(static_cast<size_t>(bytes.size()) + 1);
    input[0] = mode;
    std::memcpy(input.data() + 1, bytes.constData(), static_cast<size_t>(bytes.size()));
    return input;
}

QByteArray archiveBytes()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("seed.KDPKG"));
    PackageBuilder builder;
    builder.addMember(QStringLiteral("KDCONFIG.INI"), QByteArray(Configuration));
    builder.addMember(QStringLiteral("MAIN.BIN"), QByteArray(1000, '\x11'));
    builder.addMember(QStringLiteral("TP.BIN"), QByteArray(300, '\x5A'));
    builder.addMember(QStringLiteral("Readme.txt"), QByteArray(6000, 'r'));
    builder.setComment(QStringLiteral("Seed package"));
    builder.write(path, nullptr);
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace

std::vector<std::vector<uint8_t>> seedInputs()
{
    return {withMode(1, QByteArray(Configuration)), withMode(0, archiveBytes()), withMode(0, QByteArray("PK\x03\x04")),
            withMode(1, QByteArray("[HOST]\r\nMAXPROGLEN=0\r\n"))};
}
