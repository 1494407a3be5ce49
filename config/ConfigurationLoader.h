#pragma once
// Loads a package's configuration file into a PackageConfiguration: copies the member out of
// the package into a fresh temporary file, reads the keys in their fixed order, builds the
// entry lists, fills the selectors and computes the progress budget. The outcome is the code
// left in the holder: 0 for success. The load stops at the first failure; what was read
// before it stays.
#include <QString>

#include <functional>

class Package;
struct PackageConfiguration;
class QX_Error;
class SelectorView;

class ConfigurationLoader {
public:
    // The entries' files are members of package; selectors may be null (no window to fill).
    ConfigurationLoader(PackageConfiguration &config, const Package &package, QX_Error &errors, SelectorView *selectors)
        : m_config(config), m_package(package), m_errors(errors), m_selectors(selectors) {}

    // Loads member memberName of the package.
    void load(const QString &memberName);
    // Builds the program list for the current firmware language.
    bool BuildProgramList();

    // Prefix of the temporary copies, and the block-size limits.
    static constexpr const char *TempPrefix = "~KD";
    static constexpr int32_t DefaultMaxProgLen = 240;
    static constexpr int32_t LargestMaxProgLen = 4000;

private:
    struct ListCursor {
        int16_t counter = 1;
        QString suffix;
    };
    using AddEntry = std::function<bool(const QString &value)>;

    bool failed() const;
    void clearError();
    bool makeTempCopy(const QString &memberName);
    bool readMaxProgLen();
    bool readPorts();
    bool readBaud();
    bool readTarget();
    void readContinue();
    bool readTransfer();
    bool readLists();
    void readLanguages();
    // Reads section's numbered list base, base1, base2, ... from the cursor on; addEntry
    // parses one value and appends it. False when a value is rejected (code failureCode).
    bool readNumberedList(const QString &section, const QString &base, ListCursor &cursor,
                          int32_t failureCode, const AddEntry &addEntry);
    QString read(const QString &section, const QString &key) const;
    void addToBudget(double units);

    PackageConfiguration &m_config;
    const Package &m_package;
    QX_Error &m_errors;
    SelectorView *m_selectors;
};
