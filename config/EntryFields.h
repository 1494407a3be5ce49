#pragma once
// The fields of one configuration entry value: split at every comma, blanks around each
// field removed. Numbers convert as the old platform's whole-number conversion does, after
// the first "0X" of the field becomes "&H".
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

class EntryFields {
public:
    explicit EntryFields(const QString &sInitString);

    bool has(int index) const { return index < m_fields.size(); }
    QString text(int index) const { return m_fields.at(index); }
    std::optional<int32_t> number(int index) const;

    // Hands field index to set; false when the field is missing (or, for a number, does not
    // convert). Init chains these, so the fields before a bad one stay set.
    template <typename Set> bool takeNumber(int index, Set set) const
    {
        if (!has(index))
            return false;
        const auto value = number(index);
        if (value)
            set(*value);
        return value.has_value();
    }
    template <typename Set> bool takeText(int index, Set set) const
    {
        if (has(index))
            set(text(index));
        return has(index);
    }

    // A file-name field: a name with ":" or a leading "\" stands as written; any other is
    // put behind the source folder (blanks around the folder removed).
    static QString resolveFileName(const QString &field, const QString &sSrcPath);
    // start + length with the 32-bit wrap of an address register (the top of the address
    // space ends at 0), never signed overflow.
    static int32_t endOf(int32_t start, int32_t length);

private:
    QStringList m_fields;
};
