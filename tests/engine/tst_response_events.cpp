// Every row of the response table, the two reversed tests, the partial failures of the
// identification and checksum answers, and the error event's text.
#include "tests/support/EngineFixture.h"

#include <QtTest>

namespace {

// Raises one scripted reply on a fresh layer and waits for it, as a requester would.
void raise(EngineFixture &f, const ScriptedAppLayer::Reply &reply)
{
    if (!f.engine.appLayer())
        f.engine.CreateAppLayer();
    auto *layer = static_cast<ScriptedAppLayer *>(f.engine.appLayer());
    layer->queueReply(reply);
    f.engine.ResponseReceived = false;
    layer->Restart(); // any request will do: the scripted reply decides the answer
    f.engine.WaitForResponse();
    QVERIFY(f.engine.ResponseReceived);
}

} // namespace

class ResponseEventsTest : public QObject {
    Q_OBJECT
private slots:
    void statusRows_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("address");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");

        const QString ok = QStringLiteral("OK");
        QTest::newRow("32 passes on 66") << 32 << 66 << 0 << 0 << ok;
        QTest::newRow("32 fails on 67") << 32 << 67 << 0 << 109 << QStringLiteral("GENERAL ERROR, Code =43");
        QTest::newRow("32 negative status") << 32 << -2 << 0 << 109 << QStringLiteral("GENERAL ERROR, Code =FFFE");
        QTest::newRow("162 passes on 68") << 162 << 68 << 0 << 0 << ok;
        QTest::newRow("162 fails on 66") << 162 << 66 << 0 << 104 << QStringLiteral("PROGRAMMING POWER ON ERROR42");
        QTest::newRow("163 passes on 70") << 163 << 70 << 0 << 0 << ok;
        QTest::newRow("163 fails on 68") << 163 << 68 << 0 << 105 << QStringLiteral("PROGRAMMING POWER OFF ERROR44");
        QTest::newRow("164 fails only on 32") << 164 << 32 << 0 << 106 << QStringLiteral("READ DATA ERROR20");
        QTest::newRow("164 passes on 0") << 164 << 0 << 0 << 0 << ok;
        QTest::newRow("164 passes on 66") << 164 << 66 << 0 << 0 << ok;
        QTest::newRow("164 passes on 33") << 164 << 33 << 0 << 0 << ok;
        QTest::newRow("165 passes on 66 whatever the address") << 165 << 66 << 0x4000 << 0 << ok;
        QTest::newRow("165 shows the address, not the status")
            << 165 << 67 << 0x10F0 << 101 << QStringLiteral("PROGRAMMING ERROR, failed at address 10F0");
        QTest::newRow("165 negative address")
            << 165 << 0 << int(0xFFF00000) << 101 << QStringLiteral("PROGRAMMING ERROR, failed at address FFF00000");
        QTest::newRow("167 fails only on 65")
            << 167 << 65 << 0x1000 << 107 << QStringLiteral("FLASH ERASE ERROR, failed at address = 1000");
        QTest::newRow("167 passes on 0") << 167 << 0 << 0x1000 << 0 << ok;
        QTest::newRow("167 passes on 66") << 167 << 66 << 0x1000 << 0 << ok;
        QTest::newRow("unknown id 5 only ends the wait") << 5 << 99 << 0 << 0 << ok;
    }
    void statusRows()
    {
        QFETCH(int, id);
        QFETCH(int, status);
        QFETCH(int, address);
        QFETCH(int, code);
        QFETCH(QString, message);

        EngineFixture f;
        ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(id);
        reply.status = static_cast<int16_t>(status);
        reply.resultAddress = address;
        raise(f, reply);
        QCOMPARE(f.engine.QX_Error_GetLastError(), code);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), message);
    }

    void successNeverClearsAnEarlierError()
    {
        EngineFixture f;
        f.engine.QX_Error_SetLastError(104);
        f.engine.QX_Error_SetLastErrorString(QStringLiteral("42"));
        ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(163);
        reply.status = 70;
        raise(f, reply);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("PROGRAMMING POWER ON ERROR42"));
    }

    void identificationFillsBothCodes()
    {
        EngineFixture f;
        ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(161);
        reply.manufacturerCode = 0x89;
        reply.deviceCode = 0xA2;
        raise(f, reply);
        QCOMPARE(f.engine.ManufacturerCode, 0x89);
        QCOMPARE(f.engine.DeviceCode, 0xA2);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 0);
        const QStringList expected = {"Restart", "GetErrorCode", "GetManufacturerCode", "GetErrorCode",
                                      "GetDeviceCode", "GetErrorCode"};
        QCOMPARE(f.callNames(), expected);
    }

    void identificationStopsAtTheFirstLayerError_data()
    {
        QTest::addColumn<QList<int16_t>>("errorCodes");
        QTest::addColumn<int>("manufacturer");
        QTest::addColumn<int>("device");
        // Before: manufacturer 1, device 2; the reply carries 0x89 and 0xA2.
        QTest::newRow("first check") << QList<int16_t>{5} << 1 << 2;
        QTest::newRow("second check keeps the new manufacturer") << QList<int16_t>{0, 5} << 0x89 << 2;
        QTest::newRow("third check keeps both") << QList<int16_t>{0, 0, 5} << 0x89 << 0xA2;
    }
    void identificationStopsAtTheFirstLayerError()
    {
        QFETCH(QList<int16_t>, errorCodes);
        QFETCH(int, manufacturer);
        QFETCH(int, device);

        EngineFixture f;
        f.engine.ManufacturerCode = 1;
        f.engine.DeviceCode = 2;
        ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(161);
        reply.manufacturerCode = 0x89;
        reply.deviceCode = 0xA2;
        reply.errorCodes = errorCodes;
        reply.errorText = QStringLiteral(" no flash at 0 ");
        raise(f, reply);
        QCOMPARE(f.engine.ManufacturerCode, manufacturer);
        QCOMPARE(f.engine.DeviceCode, device);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 111);
        // The layer's text is taken unchanged.
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code =  no flash at 0 "));
    }

    void checksumAnswer()
    {
        EngineFixture f;
        ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(166);
        reply.checksum = 0x1D4;
        raise(f, reply);
        QCOMPARE(f.engine.TargetChecksum, 0x1D4);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 0);

        reply.checksum = 0x55;
        reply.errorCodes = {0, 7};
        reply.errorText = QStringLiteral("checksum garbled");
        raise(f, reply);
        QCOMPARE(f.engine.TargetChecksum, 0x55); // stored before the failing check
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = checksum garbled"));

        EngineFixture g;
        g.engine.TargetChecksum = 3;
        reply.errorCodes = {7};
        raise(g, reply);
        QCOMPARE(g.engine.TargetChecksum, 3);
        QCOMPARE(g.engine.QX_Error_GetLastError(), 111);
    }

    void errorEventText()
    {
        EngineFixture f;
        raise(f, ScriptedAppLayer::errorEvent(-3, QStringLiteral("  port vanished  ")));
        QCOMPARE(f.engine.QX_Error_GetLastError(), 111);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = -3 port vanished"));

        EngineFixture g;
        raise(g, ScriptedAppLayer::errorEvent(42, QString()));
        QCOMPARE(g.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = 42 "));
    }
};

QTEST_GUILESS_MAIN(ResponseEventsTest)
#include "tst_response_events.moc"
