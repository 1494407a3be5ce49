#pragma once
// An engine wired to a scripted application layer, a recording display and a scripted
// prompt. prepareLayer scripts each layer the engine creates; calls outlives the layer.
#include "engine/QX_UploadProcess.h"
#include "tests/support/RecordingDisplay.h"
#include "tests/support/ScriptedAppLayer.h"
#include "tests/support/ScriptedPrompt.h"

#include <functional>
#include <memory>

struct EngineFixture {
    ScriptedPrompt prompt;
    RecordingDisplay display;
    std::function<void(ScriptedAppLayer &)> prepareLayer;
    ScriptedAppLayer *layer = nullptr; // the layer of the current run; gone when the run drops it
    std::shared_ptr<QList<ScriptedAppLayer::Call>> calls;
    int layersCreated = 0;

    QX_UploadProcess engine{[this](const EngineWait &wait) {
                                auto created = std::make_unique<ScriptedAppLayer>(wait);
                                layer = created.get();
                                calls = created->callLog();
                                ++layersCreated;
                                if (prepareLayer)
                                    prepareLayer(*created);
                                return created;
                            },
                            prompt};

    void enterWizardMode() { engine.UploadWizard_Running(display); }
    // Names of the recorded calls, in order.
    QStringList callNames() const
    {
        QStringList names;
        if (calls)
            for (const auto &call : *calls)
                names << call.name;
        return names;
    }
};
