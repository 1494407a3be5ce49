#pragma once
// What the wizard window uses from outside: the application layer of each run, the fastest
// line rate the user allows, message boxes, the help viewer, the file dialog and the way the
// program ends at once. Each left empty gets the real one; tests script them all.
#include "engine/ApplicationLayer.h"
#include "wizard/PackageList.h"

#include <QString>
#include <functional>
#include <optional>

class HelpViewer;
class WizardPrompt;

struct WizardServices {
    ApplicationLayerFactory appLayerFactory;
    std::optional<int> highestLineRate;    // default: TROVEX_MAX_BAUD, as the application layer reads it
    WizardPrompt *prompt = nullptr;        // default: message boxes on the window
    HelpViewer *help = nullptr;            // default: the desktop's viewer
    PackageList::FileChooser chooseFile;   // default: the file dialog
    std::function<void(int status)> endProgram; // default: the process ends at once with status
    QString helpPath;                      // default: Varnolt.html where HelpLocation finds it
};
