// The window's controls, placed as the wizard has always laid them out: a 602 x 338 client
// area at 96 dots per inch, the step area above a 38-pixel navigation bar. Coordinates are
// device-independent pixels, which Qt scales on high-density screens.
#include "wizard/frmWizard.h"

#include "wizard/ProgressBox.h"
#include "wizard/StepPictures.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>

namespace {
constexpr int ClientWidth = 602;
constexpr int StepAreaHeight = 300;
constexpr int NavBarHeight = 38;
constexpr QSize ButtonSize(73, 21);
constexpr QRect StepPicture(14, 14, 139, 111);
constexpr QRect FinishedPicture(14, 14, 162, 205);
constexpr double StepTextPointSize = 9.75;

const char *const StepPictureNames[] = {"step0", "step1", "step2", "step3", StepPictures::Succeeded};

// The separator along the top of the navigation bar: a grey line over a white one.
class NavigationBar : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::Mid));
        painter.drawLine(7, 0, 595, 0);
        painter.setPen(Qt::white);
        painter.drawLine(7, 1, 595, 1);
    }
};

QFont stepTextFont(const QFont &base)
{
    QFont font = base;
    font.setFamilies({QStringLiteral("MS Sans Serif"), QStringLiteral("Sans Serif")});
    font.setPointSizeF(StepTextPointSize);
    font.setWeight(QFont::Normal);
    return font;
}

// A one-line caption keeps its place: where this platform's font is wider than the one the
// layout was made for, the caption's font shrinks until it fits (not below 7.5 points).
void fitOnOneLine(QLabel &caption)
{
    constexpr double SmallestPointSize = 7.5;
    caption.setWordWrap(false);
    QFont font = caption.font();
    const QString plain = QString(caption.text()).remove(QLatin1Char('&'));
    while (QFontMetrics(font).horizontalAdvance(plain) > caption.width() && font.pointSizeF() > SmallestPointSize)
        font.setPointSizeF(font.pointSizeF() - 0.25);
    caption.setFont(font);
}

QLabel *label(QWidget *parent, const QRect &place, const QString &text, bool stepFont)
{
    auto *l = new QLabel(text, parent);
    l->setGeometry(place);
    l->setWordWrap(true);
    l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    if (stepFont)
        l->setFont(stepTextFont(l->font()));
    return l;
}
} // namespace

void frmWizard::buildSteps()
{
    setFixedSize(ClientWidth, StepAreaHeight + NavBarHeight);
    m_fraStep = {buildSelectFirmwareStep(), buildIntroductionStep(), buildSettingsStep(), buildUploadStep(),
                 buildFinishedStep()};
    const int tags[] = {500, 1000, 2000, 2002, 3000};
    for (int16_t step = 0; step < 5; ++step) {
        m_fraStep[step]->setGeometry(0, 0, ClientWidth, StepAreaHeight);
        m_fraStep[step]->setProperty("tag", tags[step]);
        m_fraStep[step]->hide();
        showStepPicture(step);
    }
    buildNavigationBar();
}

void frmWizard::showStepPicture(int16_t step)
{
    if (step == Finished)
        return showFinishedPicture(QLatin1String(StepPictureNames[step]));
    m_imgStep[step]->setPixmap(StepPictures::render(QLatin1String(StepPictureNames[step]), StepPicture.size(), devicePixelRatioF()));
}

void frmWizard::showFinishedPicture(const QString &name)
{
    m_finishedPicture = name;
    m_imgStep[Finished]->setPixmap(StepPictures::render(name, FinishedPicture.size(), devicePixelRatioF()));
}

QWidget *frmWizard::buildSelectFirmwareStep()
{
    auto *panel = new QWidget(this);
    m_imgStep[0] = new QLabel(panel);
    m_imgStep[0]->setGeometry(StepPicture);
    m_lblStep[0] = label(panel, {184, 14, 328, 42},
                         QStringLiteral("Please select the firmware from the list or click browse to select another firmware package "),
                         true);
    m_lstPackages = new QListWidget(panel);
    m_lstPackages->setGeometry(184, 56, 321, 95);
    m_cmdBrowse = new QPushButton(QStringLiteral("&Browse ..."), panel);
    m_cmdBrowse->setGeometry(QRect(QPoint(512, 56), ButtonSize));
    m_cmdBrowse->setAutoDefault(false);
    m_lblPackageNotes = label(panel, {184, 168, 321, 105}, QString(), false);
    m_lblPackageNotes->setTextFormat(Qt::PlainText);
    return panel;
}

QWidget *frmWizard::buildIntroductionStep()
{
    auto *panel = new QWidget(this);
    m_imgStep[1] = new QLabel(panel);
    m_imgStep[1]->setGeometry(StepPicture);
    m_txtReadme = new QPlainTextEdit(panel);
    m_txtReadme->setGeometry(160, 16, 433, 273);
    m_txtReadme->setReadOnly(true);
    m_txtReadme->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    return panel;
}

QWidget *frmWizard::buildSettingsStep()
{
    auto *panel = new QWidget(this);
    m_imgStep[2] = new QLabel(panel);
    m_imgStep[2]->setGeometry(StepPicture);
    QLabel *portCaption = label(panel, {176, 16, 244, 17}, QStringLiteral("Communications &Port for firmware update:"), true);
    fitOnOneLine(*portCaption);
    m_cmbPorts = new QComboBox(panel);
    m_cmbPorts->setGeometry(424, 16, 161, m_cmbPorts->sizeHint().height());
    portCaption->setBuddy(m_cmbPorts);
    QLabel *languageCaption = label(panel, {176, 40, 244, 17}, QStringLiteral("Instrument Online Help &Language:"), true);
    fitOnOneLine(*languageCaption);
    m_cmbFirmwareLanguages = new QComboBox(panel);
    m_cmbFirmwareLanguages->setGeometry(424, 40, 161, m_cmbFirmwareLanguages->sizeHint().height());
    languageCaption->setBuddy(m_cmbFirmwareLanguages);
    // Which device the chosen port opens here, between the selectors and the summary.
    m_lblPortDevice = label(panel, {176, 66, 409, 30}, QString(), false);
    m_lblPortDevice->setTextFormat(Qt::PlainText);
    // The summary of the advanced display can be long and holds unbroken names and paths: it
    // wraps anywhere and scrolls, on the step's background like a label.
    m_txtSummary = new QPlainTextEdit(panel);
    m_txtSummary->setGeometry(176, 100, 400, 167);
    m_txtSummary->setReadOnly(true);
    m_txtSummary->setFrameShape(QFrame::NoFrame);
    m_txtSummary->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_txtSummary->viewport()->setAutoFillBackground(false);
    m_txtSummary->setFont(stepTextFont(m_txtSummary->font()));
    // Where the transfer program can say what its flash holds, only what differs is written;
    // this writes everything, as a rerun of a doubtful instrument may want.
    m_chkWriteEverything = new QCheckBox(QStringLiteral("&Write everything, also what the instrument holds already"), panel);
    m_chkWriteEverything->setGeometry(176, 271, 409, 18);
    return panel;
}

QWidget *frmWizard::buildUploadStep()
{
    auto *panel = new QWidget(this);
    m_imgStep[3] = new QLabel(panel);
    m_imgStep[3]->setGeometry(StepPicture);
    m_lblStep[1] = label(panel, {160, 16, 432, 65},
                         QStringLiteral("The firmware is being transferred to your instrument, do not disconnect the "
                                        "communications cable or switch off the power to your instrument until this step is complete."),
                         true);
    m_lstStep = new QListWidget(panel);
    m_lstStep->setGeometry(160, 72, 433, 147);
    m_lstStep->hide(); // shown only in the advanced display
    label(panel, {8, 224, 96, 16}, QStringLiteral("Current Action:"), false);
    m_lblActionText = label(panel, {104, 224, 481, 16}, QString(), false);
    m_lblActionText->setWordWrap(false);
    m_lblActionText->setTextFormat(Qt::PlainText); // it names the package's files
    m_pboxStep = new ProgressBox(panel);
    m_pboxStep->setGeometry(8, 240, 585, 17);
    label(panel, {8, 264, 120, 16}, QStringLiteral("Entire Process:"), false);
    m_pboxEntireProcess = new ProgressBox(panel);
    m_pboxEntireProcess->setGeometry(8, 280, 585, 17);
    return panel;
}

QWidget *frmWizard::buildFinishedStep()
{
    auto *panel = new QWidget(this);
    m_imgStep[4] = new QLabel(panel);
    m_imgStep[4]->setGeometry(FinishedPicture);
    m_lblStep[4] = label(panel, {214, 14, 376, 266}, QString(), true);
    m_lblStep[4]->setTextFormat(Qt::PlainText);
    m_lblStep[4]->setProperty("tag", 3001);
    return panel;
}

void frmWizard::buildNavigationBar()
{
    auto *bar = new NavigationBar(this);
    bar->setGeometry(0, StepAreaHeight, ClientWidth, NavBarHeight);
    const int x[] = {7, 262, 341, 415, 522};
    for (int i = 0; i < 5; ++i) {
        m_cmdNav[i] = new QPushButton(bar);
        m_cmdNav[i]->setGeometry(QRect(QPoint(x[i], 8), ButtonSize));
        m_cmdNav[i]->setProperty("tag", 100 + i);
        m_cmdNav[i]->setAutoDefault(false); // no button answers Enter
        m_cmdNav[i]->setDefault(false);
    }
}
