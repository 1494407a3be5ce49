#include "wizard/ResourceTexts.h"

#include "resources/StringTable.h"

#include <QAbstractButton>
#include <QGroupBox>
#include <QLabel>
#include <QVariant>
#include <QWidget>

namespace ResourceTexts {
namespace {

bool numeric(const QVariant &value, int &id)
{
    bool ok = false;
    id = value.toString().toInt(&ok);
    return ok;
}

void setCaption(QWidget &widget, const QString &caption)
{
    if (auto *button = qobject_cast<QAbstractButton *>(&widget))
        button->setText(caption);
    else if (auto *label = qobject_cast<QLabel *>(&widget))
        label->setText(caption);
    else if (auto *group = qobject_cast<QGroupBox *>(&widget))
        group->setTitle(caption);
    else
        widget.setWindowTitle(caption); // step panels keep their title here
}

void apply(QWidget &widget)
{
    int id = 0;
    if (numeric(widget.property("tag"), id))
        setCaption(widget, StringTable::loadContinued(id));
    if (numeric(widget.toolTip(), id))
        widget.setToolTip(StringTable::load(id));
}

} // namespace

void ApplyResourceTexts(QWidget &form)
{
    int id = 0;
    if (numeric(form.property("tag"), id))
        form.setWindowTitle(StringTable::load(id));
    for (QWidget *child : form.findChildren<QWidget *>())
        apply(*child);
}

} // namespace ResourceTexts
