// The last-error holder, its forwarding, and the message table.
#include "config/LastErrorOwner.h"
#include "config/QX_Error.h"
#include "resources/StringTable.h"

#include <QtTest>

namespace {
class Owner : public LastErrorOwner {};
}

class ErrorMessagesTest : public QObject {
    Q_OBJECT
private slots:
    void freshHolderIsOk()
    {
        QX_Error holder;
        QCOMPARE(holder.GetLastError(), 0);
        QCOMPARE(holder.GetLastErrorString(), QStringLiteral("OK"));
    }

    void messageIsCodeTextFollowedByDetail()
    {
        QX_Error holder;
        holder.SetLastError(6);
        holder.SetLastErrorString(QStringLiteral("\r\n File:x"));
        QCOMPARE(holder.GetLastErrorString(), QStringLiteral("Configuration File Key Not Found\r\n File:x"));
        // Reading changes nothing.
        QCOMPARE(holder.GetLastErrorString(), QStringLiteral("Configuration File Key Not Found\r\n File:x"));
        QCOMPARE(holder.GetLastError(), 6);
    }

    void clearingTheCodeKeepsTheText()
    {
        QX_Error holder;
        holder.SetLastError(3);
        holder.SetLastErrorString(QStringLiteral(" B4"));
        holder.SetLastError(0);
        QCOMPARE(holder.GetLastErrorString(), QStringLiteral("OK B4"));
    }

    void trailingBlanksAreKept_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("101") << 101 << QStringLiteral("PROGRAMMING ERROR, failed at address ");
        QTest::newRow("107") << 107 << QStringLiteral("FLASH ERASE ERROR, failed at address = ");
        QTest::newRow("110") << 110 << QStringLiteral("Error occurred uploading the Transfer Program ");
        QTest::newRow("111") << 111 << QStringLiteral("Error occurred in communications layer, Code = ");
        QTest::newRow("109 has none") << 109 << QStringLiteral("GENERAL ERROR, Code =");
        QTest::newRow("7 keeps its spelling") << 7 << QStringLiteral("Mermory Entry Inalid");
        QTest::newRow("never set but listed") << 108 << QStringLiteral("PROGRAMMING END ERROR");
    }
    void trailingBlanksAreKept()
    {
        QFETCH(int, code);
        QFETCH(QString, message);
        QCOMPARE(QX_Error::messageOf(code), message);
        QCOMPARE(StringTable::load(40000 + code), message);
    }

    void everyCodeHasAMessage()
    {
        const QList<int> codes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                                  101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111};
        for (int code : codes)
            QVERIFY2(!QX_Error::messageOf(code).isEmpty(), qPrintable(QString::number(code)));
        QVERIFY(QX_Error::messageOf(15).isEmpty());
    }

    void continuedStringsJoinAtTheMarker()
    {
        QCOMPARE(StringTable::loadContinued(3001),
                 QStringLiteral("The Varnolt Wizard is finished.\r\n\r\nTo exit the Wizard click Finish."));
        QCOMPARE(StringTable::loadContinued(103), QStringLiteral("&Next >"));
    }

    void wizardCaptionsArePresent()
    {
        QCOMPARE(StringTable::load(102), QStringLiteral("< &Back"));
        QCOMPARE(StringTable::load(500), QStringLiteral("Select the Firmware to use"));
        QCOMPARE(StringTable::load(2002), QStringLiteral("Upload Firmware"));
        QCOMPARE(StringTable::load(3000), QStringLiteral("Finished!"));
    }

    void ownersForwardToTheirOwnHolder()
    {
        Owner a, b;
        QCOMPARE(a.QX_Error_GetLastErrorString(), QStringLiteral("OK"));
        a.QX_Error_SetLastError(2);
        a.QX_Error_SetLastErrorString(QStringLiteral(" am29f040"));
        QCOMPARE(a.QX_Error_GetLastError(), 2);
        QCOMPARE(a.QX_Error_GetLastErrorString(), QStringLiteral("Flash Memory Name Invalid am29f040"));
        QCOMPARE(b.QX_Error_GetLastError(), 0);
        QCOMPARE(b.QX_Error_GetLastErrorString(), QStringLiteral("OK"));
    }
};

QTEST_APPLESS_MAIN(ErrorMessagesTest)
#include "tst_error_messages.moc"
