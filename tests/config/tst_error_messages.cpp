// The last-error holder, its forwarding, and the message table's gaps and continuations.
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
    void messageIsCodeTextFollowedByDetail_data()
    {
        QTest::addColumn<QList<int>>("codes"); // set in turn
        QTest::addColumn<QString>("detail");
        QTest::addColumn<QString>("message");
        QTest::newRow("fresh holder") << QList<int>{} << "" << "OK";
        QTest::newRow("code and detail") << QList<int>{6} << "\r\n File:x" << "Configuration File Key Not Found\r\n File:x";
        QTest::newRow("clearing the code keeps the text") << QList<int>{3, 0} << " B4" << "OK B4";
    }
    void messageIsCodeTextFollowedByDetail()
    {
        QFETCH(QList<int>, codes);
        QFETCH(QString, detail);
        QFETCH(QString, message);
        Owner owner, other;
        for (int code : codes)
            owner.QX_Error_SetLastError(code);
        owner.QX_Error_SetLastErrorString(detail);
        QCOMPARE(owner.QX_Error_GetLastErrorString(), message);
        QCOMPARE(owner.QX_Error_GetLastErrorString(), message); // reading changes nothing
        QCOMPARE(owner.QX_Error_GetLastError(), codes.isEmpty() ? 0 : codes.last());
        QCOMPARE(other.QX_Error_GetLastErrorString(), QStringLiteral("OK")); // each owner has its own holder
    }

    void everyCodeHasAMessage()
    {
        const QList<int> codes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                                  101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113};
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
};

QTEST_APPLESS_MAIN(ErrorMessagesTest)
#include "tst_error_messages.moc"
