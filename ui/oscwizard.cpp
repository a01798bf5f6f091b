#include "ui/oscwizard.h"

#include "app/manager.h"
#include "osc/osc.h"
#include "ui/uihelpers.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHeaderView>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTableWidget>
#include <QVBoxLayout>

Manager *OscWizard::m_manager = nullptr;
int OscWizard::m_targetix = -1;

namespace {

// The gateway's targets as address and port pairs, in list order.
QList<QPair<QHostAddress, unsigned>> targets()
{
    QList<QPair<QHostAddress, unsigned>> list;
    const OSC *gateway = OscWizard::m_manager->oscGateway();
    if (!gateway)
        return list;
    const QList<QHostAddress> &addresses = gateway->targets();
    const QList<quint32> &ports = gateway->targetPorts();
    for (int i = 0; i < addresses.size(); ++i)
        list.append({addresses.at(i), i < ports.size() ? unsigned(ports.at(i)) : 0u});
    return list;
}

} // namespace

OscWizard::OscWizard(QWidget *parent, Manager *manager) : QWizard(parent)
{
    m_manager = manager;
    setObjectName(QStringLiteral("OscWizard"));
    VexaUi::styleWizard(this, tr("OSC settings"), QStringLiteral(":/vexastudio"));

    setPage(IntroPageId, new OscIntroPage);
    setPage(SettingsPageId, new OscSettingsPage);
    setPage(SelectPageId, new SelectOscTargetPage);
    setPage(ChangePageId, new ChangeOscTargetPage);
    setPage(ConclusionPageId, new OscConclusionPage);
    setStartId(IntroPageId);
    VexaUi::setWatermark(this, QStringLiteral(":/Wizard/Osc"));

    connect(this, &QWizard::helpRequested, this, &OscWizard::showHelp);
}

bool OscWizard::targetChanged() const
{
    // The address field keeps its value when a later route skips the target page.
    return hasVisitedPage(ChangePageId) &&
           !VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).isNull();
}

void OscWizard::accept()
{
    // The lower bound of 1000 is only shown on the overview, never enforced.
    const unsigned inPort = field(QStringLiteral("settings.inport")).toString().toUInt();
    m_manager->oscSetInPort(field(QStringLiteral("settings.receiving")).toBool() ? inPort : 0u);
    if (targetChanged()) {
        QString address = VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).toString();
        m_manager->oscSetHost(m_targetix, address, field(QStringLiteral("server.port")).toString().toUInt());
    }
    QWizard::accept();
    m_manager->settingsWriteVXMA();
}

void OscWizard::reject()
{
    // A target removed on the select page is gone already; the file follows.
    QWizard::reject();
    m_manager->settingsWriteVXMA();
}

void OscWizard::showHelp()
{
    VexaUi::openHelp(this, QString::fromLatin1(VexaUi::HelpOsc));
}

// ---- pages -----------------------------------------------------------------------------------

OscIntroPage::OscIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Introduction"));
    setSubTitle(tr("The VEXA STUDIO Manager OSC module"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(VexaUi::textLabel(
        tr("Open Sound Control (OSC) is a protocol for networking sound synthesizers, computers, and other "
           "multimedia devices for purposes such as musical performance or show control. OSC's advantages "
           "include "
           "interoperability, accuracy, flexibility and enhanced organization and documentation."),
        this));
    layout->addWidget(
        VexaUi::textLabel(tr("The VEXA STUDIO Manager can be setup as an OSC receiver for VEXA STUDIO "
                             "commands and values and/or as OSC sender for guarding VEXA STUDIO states"),
                          this));
    layout->addWidget(VexaUi::textLabel(tr("Press Cancel if you do not want to use OSC"), this));
    layout->addStretch();
}

OscSettingsPage::OscSettingsPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Set OSC receiving port"));
    setSubTitle(tr("The port number that will handle incomming controll messages"));

    m_receiving = new QCheckBox(tr("Receiving Port:"), this);
    m_inPort = new QLineEdit(QStringLiteral("7770"), this);
    m_inPort->setValidator(new QIntValidator(0, 65535, m_inPort));
    m_add = new QRadioButton(tr("Add a OSC Target IP"), this);
    m_change = new QRadioButton(tr("Change/Remove an OSC Target"), this);
    m_none = new QRadioButton(tr("No Target change"), this);
    registerField(QStringLiteral("settings.receiving"), m_receiving);
    registerField(QStringLiteral("settings.inport"), m_inPort);
    registerField(QStringLiteral("settings.doadd"), m_add);
    registerField(QStringLiteral("settings.dochange"), m_change);
    connect(m_receiving, &QCheckBox::toggled, this, &QWizardPage::completeChanged);
    connect(m_inPort, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);

    auto *grid = new QGridLayout(this);
    grid->addWidget(m_receiving, 0, 0);
    grid->addWidget(m_inPort, 0, 1);
    grid->addWidget(
        VexaUi::textLabel(tr("The VEXA STUDIO Manager can be setup as an OSC receiver for VEXA STUDIO "
                             "commands on this port"),
                          this, true),
        1, 0, 1, 2);
    grid->addWidget(
        VexaUi::textLabel(tr("The VEXA STUDIO Manager can also be setup as an OSC sender for guarding "
                             "VEXA STUDIO states to OSC Targets:"),
                          this),
        2, 0, 1, 2);
    grid->addWidget(m_add, 3, 0, 1, 2);
    grid->addWidget(m_change, 4, 0, 1, 2);
    grid->addWidget(m_none, 5, 0, 1, 2);
    grid->setRowStretch(6, 1);
}

void OscSettingsPage::initializePage()
{
    if (const OSC *gateway = OscWizard::m_manager->oscGateway()) {
        m_receiving->setChecked(gateway->inPort() != 0);
        if (gateway->inPort() != 0)
            m_inPort->setText(QString::number(gateway->inPort()));
    }
    // Add and change start unchecked: a finish straight away changes no target.
    m_none->setChecked(true);
}

bool OscSettingsPage::isComplete() const
{
    return !m_receiving->isChecked() || !m_inPort->text().isEmpty();
}

int OscSettingsPage::nextId() const
{
    if (m_add->isChecked()) {
        OscWizard::m_targetix = -1;
        return OscWizard::ChangePageId;
    }
    if (m_change->isChecked())
        return OscWizard::SelectPageId;
    return OscWizard::ConclusionPageId;
}

SelectOscTargetPage::SelectOscTargetPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Select the OSC Target"));
    setSubTitle(tr("Change or Remove the selected OSC Target IP address and Port"));
    m_table = new QTableWidget(0, 1, this);
    m_table->setHorizontalHeaderLabels({tr("OSC Target")});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_remove = new QPushButton(tr("Remove Target"), this);
    connect(m_remove, &QPushButton::clicked, this, &SelectOscTargetPage::removeTarget);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addWidget(VexaUi::textLabel(tr("Select the Target to Change or Remove..."), this, true));
    layout->addWidget(m_remove, 0, Qt::AlignRight);
}

void SelectOscTargetPage::initializePage()
{
    const auto list = targets();
    m_table->clearContents();
    m_table->setRowCount(list.size());
    for (int row = 0; row < list.size(); ++row)
        m_table->setItem(row, 0,
                         new QTableWidgetItem(
                             tr("%1 port: %2").arg(list.at(row).first.toString()).arg(list.at(row).second)));
    m_table->setCurrentCell(-1, -1);
    m_table->clearSelection();
}

int SelectOscTargetPage::selectedRow() const
{
    const int row = m_table->currentRow();
    return row >= 0 && m_table->item(row, 0) && m_table->item(row, 0)->isSelected() ? row : -1;
}

int SelectOscTargetPage::nextId() const
{
    OscWizard::m_targetix = selectedRow();
    return OscWizard::m_targetix < 0 ? OscWizard::ConclusionPageId : OscWizard::ChangePageId;
}

void SelectOscTargetPage::removeTarget()
{
    const int row = selectedRow();
    if (row < 0)
        return;
    m_table->removeRow(row);
    // Takes effect at once; the gateway ends with its last target.
    OscWizard::m_manager->oscRemoveHost(row);
    m_table->setCurrentCell(-1, -1);
    m_table->clearSelection();
}

ChangeOscTargetPage::ChangeOscTargetPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Add / Change an OSC Target"));
    setSubTitle(tr("Fill in the right IP Address and Port for this OSC Target"));
    m_address = VexaUi::addressEdit(this);
    m_port = new QLineEdit(this);
    m_port->setValidator(new QIntValidator(0, 65535, m_port));
    registerField(QStringLiteral("server.ip"), m_address);
    registerField(QStringLiteral("server.port"), m_port);
    connect(m_address, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);
    connect(m_port, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);

    auto *grid = new QGridLayout(this);
    grid->addWidget(new QLabel(tr("IP Address:"), this), 0, 0);
    grid->addWidget(m_address, 0, 1);
    grid->addWidget(VexaUi::textLabel(tr("In the IPv4 form eg. <i>192.168.0.100</i>"), this, true), 1, 1);
    grid->addWidget(new QLabel(tr("Port:"), this), 2, 0);
    grid->addWidget(m_port, 2, 1);
    grid->addWidget(VexaUi::textLabel(tr("Some number in the range of 1000 till 10000"), this, true), 3, 1);
    grid->setRowStretch(4, 1);
}

void ChangeOscTargetPage::initializePage()
{
    const auto list = targets();
    const int ix = OscWizard::m_targetix;
    if (ix >= 0 && ix < list.size()) {
        m_address->setText(list.at(ix).first.toString());
        m_port->setText(QString::number(list.at(ix).second));
    } else {
        m_address->clear();
        m_port->clear();
    }
}

bool ChangeOscTargetPage::isComplete() const
{
    return VexaUi::addressTyped(m_address->text()) && !m_port->text().isEmpty();
}

OscConclusionPage::OscConclusionPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Overview"));
    setSubTitle(tr("The edited OSC Settings"));
    m_label = VexaUi::overviewLabel(this);
}

void OscConclusionPage::initializePage()
{
    const auto *wizard = static_cast<const OscWizard *>(this->wizard());
    QStringList lines;
    if (field(QStringLiteral("settings.receiving")).toBool()) {
        const unsigned port = field(QStringLiteral("settings.inport")).toString().toUInt();
        if (port > 999)
            lines << tr("- The Manager will Receive OSC on <b>%1</b>.<br>").arg(port);
        else
            lines << VexaUi::redLine(
                tr("- Error: the Receiving port has an invalid value <b>%1</b>").arg(port));
    } else {
        lines << tr("- The Manager will not be set as OSC Receiver<br>");
    }

    if (!wizard->targetChanged()) {
        lines << tr("- There are no new OSC Targets<br>");
    } else {
        const QString address =
            VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).toString();
        const unsigned port = field(QStringLiteral("server.port")).toString().toUInt();
        if (port > 999)
            lines << tr("- It will send OSC on Target IP <b>%2</b> on Port <b>%3</b>").arg(address).arg(port);
        else
            lines << VexaUi::redLine(tr("- Error: the Target port has an invalid value <b>%1</b>").arg(port));
    }
    m_label->setText(lines.join(QStringLiteral("<br><br>")));
}

QString OscConclusionPage::overviewText() const
{
    return m_label->text();
}
