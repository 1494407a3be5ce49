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

    // The identification (161) and checksum (166) answers ask the layer for its error code
    // before and after each value: the first nonzero one ends the reading, keeping the values
    // read so far and the layer's text unchanged. The error event trims that text.
    void answersThatCarryValues_data()
    {
        QTest::addColumn<int>("id"); // 0: the error event
        QTest::addColumn<QList<int16_t>>("errorCodes");
        QTest::addColumn<QList<int>>("values"); // manufacturer, device, checksum afterwards
        QTest::addColumn<QString>("message");
        const QString layer = QStringLiteral("Error occurred in communications layer, Code = ");
        // Before: manufacturer 1, device 2, checksum 3; the answer carries 0x89, 0xA2 and 0x1D4.
        QTest::newRow("161 fills both codes") << 161 << QList<int16_t>{0} << QList<int>{0x89, 0xA2, 3} << "OK";
        QTest::newRow("161, first check") << 161 << QList<int16_t>{5} << QList<int>{1, 2, 3} << layer + " no flash ";
        QTest::newRow("161, second check keeps the manufacturer") << 161 << QList<int16_t>{0, 5} << QList<int>{0x89, 2, 3}
                                                                  << layer + " no flash ";
        QTest::newRow("161, third check keeps both") << 161 << QList<int16_t>{0, 0, 5} << QList<int>{0x89, 0xA2, 3}
                                                     << layer + " no flash ";
        QTest::newRow("166 takes the whole value") << 166 << QList<int16_t>{0} << QList<int>{1, 2, 0x1D4} << "OK";
        QTest::newRow("166, first check") << 166 << QList<int16_t>{7} << QList<int>{1, 2, 3} << layer + " no flash ";
        QTest::newRow("166, second check keeps the sum") << 166 << QList<int16_t>{0, 7} << QList<int>{1, 2, 0x1D4}
                                                         << layer + " no flash ";
        QTest::newRow("the error event") << 0 << QList<int16_t>{-3} << QList<int>{1, 2, 3} << layer + "-3 no flash";
    }
    void answersThatCarryValues()
    {
        QFETCH(int, id);
        QFETCH(QList<int16_t>, errorCodes);
        QFETCH(QList<int>, values);
        QFETCH(QString, message);
        EngineFixture f;
        f.engine.ManufacturerCode = 1;
        f.engine.DeviceCode = 2;
        f.engine.TargetChecksum = 3;
        ScriptedAppLayer::Reply reply = id == 0 ? ScriptedAppLayer::errorEvent(errorCodes.first(), QString())
                                                : ScriptedAppLayer::response(id);
        reply.manufacturerCode = 0x89;
        reply.deviceCode = 0xA2;
        reply.checksum = 0x1D4;
        reply.errorCodes = errorCodes;
        reply.errorText = QStringLiteral(" no flash ");
        raise(f, reply);
        QCOMPARE((QList<int>{f.engine.ManufacturerCode, f.engine.DeviceCode, f.engine.TargetChecksum}), values);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), message);
    }
};

QTEST_GUILESS_MAIN(ResponseEventsTest)
#include "tst_response_events.moc"
