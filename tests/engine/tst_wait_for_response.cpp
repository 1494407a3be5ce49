// The engine's wait, the one place where the program sleeps: it ends on a response, an error
// event or Cancel, and not before; it sees nothing of an answer before it starts waiting.
#include "tests/support/EngineFixture.h"

#include <QTimer>
#include <QtTest>

class WaitForResponseTest : public QObject {
    Q_OBJECT
private slots:
    void endsOnTheResponseOrAnErrorEvent()
    {
        EngineFixture f;
        f.prepareLayer = [](ScriptedAppLayer &l) {
            l.queueReply(ScriptedAppLayer::Reply{});
            l.queueReply(ScriptedAppLayer::errorEvent(-3, QStringLiteral(" line dead ")));
        };
        auto *layer = static_cast<ScriptedAppLayer *>(f.engine.CreateAppLayer());
        f.engine.ResponseReceived = false;
        layer->ProgrammingVoltageOn();
        QVERIFY(!f.engine.ResponseReceived); // no answer inside the request call
        f.engine.WaitForResponse();
        QVERIFY(f.engine.ResponseReceived);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 0);
        f.engine.ResponseReceived = false;
        layer->FlashDelete(2, 22, 0x10000, 0x70000);
        f.engine.WaitForResponse();
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = -3 line dead"));
    }

    void endsOnCancelAndNotBefore()
    {
        EngineFixture f;
        f.prepareLayer = [](ScriptedAppLayer &l) { l.queueReply(ScriptedAppLayer::silence()); };
        auto *layer = f.engine.CreateAppLayer();
        bool otherEventsRan = false;
        QTimer::singleShot(0, &f.engine, [&] {
            otherEventsRan = true;
            QTimer::singleShot(0, &f.engine, [&] { f.engine.Cancel(); });
        });
        f.engine.ResponseReceived = false;
        layer->ReadMemory(2, 0, 240);
        f.engine.WaitForResponse();
        QVERIFY(otherEventsRan); // they ran while it waited, and did not end it
        QVERIFY(!f.engine.ResponseReceived);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 11);
    }

    void aLateAnswerAfterCancelIsStillRecorded()
    {
        EngineFixture f;
        ScriptedAppLayer::Reply refused = ScriptedAppLayer::response(163);
        refused.status = 1;
        f.prepareLayer = [&](ScriptedAppLayer &l) { l.queueReply(refused); };
        auto *layer = f.engine.CreateAppLayer();
        f.engine.ResponseReceived = false;
        layer->ProgrammingVoltageOff();
        f.engine.Cancel(); // the wait ends at once; the answer comes afterwards
        f.engine.WaitForResponse();
        QCOMPARE(f.engine.QX_Error_GetLastError(), 11);
        QTRY_VERIFY(f.engine.ResponseReceived);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 105); // the last recorded error stays
    }

    void aDroppedLayerRaisesNothingMore()
    {
        EngineFixture f;
        auto *layer = f.engine.CreateAppLayer();
        f.engine.ResponseReceived = false;
        layer->ProgrammingVoltageOn();
        f.engine.DropAppLayer();
        QCoreApplication::processEvents(); // where its answer would have come
        QVERIFY(!f.engine.ResponseReceived);
    }
};

QTEST_GUILESS_MAIN(WaitForResponseTest)
#include "tst_wait_for_response.moc"
