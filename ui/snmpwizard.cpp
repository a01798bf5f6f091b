#include "ui/snmpwizard.h"

#include "app/manager.h"
#include "snmp/snmp.h"
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

Manager *SnmpWizard::m_manager = nullptr;
int SnmpWizard::m_serverix = -1;

namespace {

// A port typed into a wizard: 0 when it is not a number in the UDP port range.
unsigned portFromText(const QString &text)
{
    bool ok = false;
    const unsigned port = text.trimmed().toUInt(&ok);
    return ok && port <= 65535 ? port : 0u;
}

QList<QHostAddress> snmpReceivers()
{
    const SNMP *agent = SnmpWizard::m_manager->snmpAgent();
    return agent ? agent->hostList() : QList<QHostAddress>();
}

} // namespace

SnmpWizard::SnmpWizard(QWidget *parent, Manager *manager) : QWizard(parent)
{
    m_manager = manager;
    setObjectName(QStringLiteral("SnmpWizard"));
    VexaUi::styleWizard(this, tr("SNMP settings"), QStringLiteral(":/vexastudio"));

    setPage(IntroPageId, new SnmpIntroPage);
    setPage(SettingsPageId, new SnmpSettingsPage);
    setPage(WhatPageId, new SnmpWhatPage);
    setPage(SelectPageId, new SelectSnmpServerPage);
    setPage(ChangePageId, new ChangeSnmpServerPage);
    setPage(ConclusionPageId, new SnmpConclusionPage);
    setStartId(IntroPageId);
    VexaUi::setWatermark(this, QStringLiteral(":/Wizard/Snmp"));

    connect(this, &QWizard::helpRequested, this, &SnmpWizard::showHelp);
}

bool SnmpWizard::receiverChanged() const
{
    // The address field keeps its value when the trap pages are skipped later on, so only a
    // route through the address page counts.
    return field(QStringLiteral("port.dosend")).toBool() && hasVisitedPage(ChangePageId) &&
           !VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).isNull();
}

void SnmpWizard::accept()
{
    const bool listen = field(QStringLiteral("port.dolisten")).toBool();
    m_manager->snmpSetListenPort(listen ? portFromText(field(QStringLiteral("port.listenport")).toString())
                                        : 0u);
    const bool send = field(QStringLiteral("port.dosend")).toBool();
    m_manager->snmpSetTrapPort(send ? portFromText(field(QStringLiteral("port.trapport")).toString()) : 0u);
    if (receiverChanged()) {
        QString address = VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).toString();
        m_manager->snmpSetHost(m_serverix, address);
    }
    QWizard::accept();
    m_manager->settingsWriteVXMA();
}

void SnmpWizard::reject()
{
    // A receiver removed on the select page is gone already; the file follows.
    QWizard::reject();
    m_manager->settingsWriteVXMA();
}

void SnmpWizard::showHelp()
{
    VexaUi::openHelp(this, QString::fromLatin1(VexaUi::HelpSnmp));
}

// ---- pages -----------------------------------------------------------------------------------

SnmpIntroPage::SnmpIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Introduction"));
    setSubTitle(tr("The VEXA STUDIO Manager SNMP module"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        VexaUi::textLabel(tr("The VEXA STUDIO Manager can be setup as an SNMP Master Agent treating all "
                             "VEXA STUDIO instances as SNMP Agents."),
                          this));
    layout->addWidget(
        VexaUi::textLabel(tr("It can send Traps to SNMP Server IP's (port 162), and/or handle the "
                             "incomming GET/SET requests (port 161)"),
                          this));
    layout->addWidget(VexaUi::textLabel(tr("Press Cancel if you do not want to use SNMP"), this));
    layout->addStretch();
}

SnmpSettingsPage::SnmpSettingsPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Set SNMP ports"));
    setSubTitle(tr("The VEXA STUDIO Manager SNMP module"));

    m_listen = new QCheckBox(tr("Receive GET/SET commands on port:"), this);
    m_listenPort = new QLineEdit(QStringLiteral("161"), this);
    m_listenPort->setValidator(new QIntValidator(0, 65535, m_listenPort));
    m_send = new QCheckBox(tr("Send TRAPS messages on port:"), this);
    m_trapPort = new QLineEdit(QStringLiteral("162"), this);
    m_trapPort->setValidator(new QIntValidator(0, 65535, m_trapPort));
    registerField(QStringLiteral("port.dolisten"), m_listen);
    registerField(QStringLiteral("port.listenport"), m_listenPort);
    registerField(QStringLiteral("port.dosend"), m_send);
    registerField(QStringLiteral("port.trapport"), m_trapPort);
    for (QCheckBox *box : {m_listen, m_send})
        connect(box, &QCheckBox::toggled, this, &QWizardPage::completeChanged);
    for (QLineEdit *edit : {m_listenPort, m_trapPort})
        connect(edit, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);

    auto *grid = new QGridLayout(this);
    grid->addWidget(VexaUi::textLabel(tr("For sending SNMP Traps, and/or handle the GET/SET requests"), this),
                    0, 0, 1, 2);
    grid->addWidget(VexaUi::textLabel(tr("Please choose one or both:"), this), 1, 0, 1, 2);
    grid->addWidget(m_listen, 2, 0);
    grid->addWidget(m_listenPort, 2, 1);
    grid->addWidget(
        VexaUi::textLabel(tr("This is normally 161 but some PC's have reserved this for there own SNMP "
                             "deamon"),
                          this, true),
        3, 0, 1, 2);
    grid->addWidget(m_send, 4, 0);
    grid->addWidget(m_trapPort, 4, 1);
    grid->addWidget(VexaUi::textLabel(tr("This is normally 162, change only if needed"), this, true), 5, 0, 1,
                    2);
    grid->setRowStretch(6, 1);
}

void SnmpSettingsPage::initializePage()
{
    const unsigned listen = SnmpWizard::m_manager->snmpListenPort();
    m_listen->setChecked(listen != 0);
    m_listenPort->setText(listen != 0 ? QString::number(listen) : QStringLiteral("161"));
    const unsigned trap = SnmpWizard::m_manager->snmpTrapPort();
    m_send->setChecked(trap != 0);
    m_trapPort->setText(trap != 0 ? QString::number(trap) : QStringLiteral("162"));
}

bool SnmpSettingsPage::isComplete() const
{
    return (!m_listen->isChecked() || !m_listenPort->text().isEmpty()) &&
           (!m_send->isChecked() || !m_trapPort->text().isEmpty());
}

int SnmpSettingsPage::nextId() const
{
    return m_send->isChecked() ? SnmpWizard::WhatPageId : SnmpWizard::ConclusionPageId;
}

SnmpWhatPage::SnmpWhatPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("SNMP Server IP"));
    setSubTitle(tr("For receiving SNMP trap messages"));
    m_add = new QRadioButton(tr("Add a SNMP Server IP"), this);
    m_change = new QRadioButton(tr("Change/Remove an SNMP Server"), this);
    m_none = new QRadioButton(tr("No Server change"), this);
    registerField(QStringLiteral("intro.doadd"), m_add);
    registerField(QStringLiteral("intro.dochange"), m_change);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        VexaUi::textLabel(tr("VEXA STUDIO Manager does not support broadcast auto detection, but you can "
                             "add SNMP Server IP addresses that will receive SNMP traps"),
                          this));
    layout->addWidget(m_add);
    layout->addWidget(m_change);
    layout->addWidget(m_none);
    layout->addStretch();
    preselect();
}

void SnmpWhatPage::preselect()
{
    // Without receivers the only sensible step is to add one.
    if (snmpReceivers().isEmpty())
        m_add->setChecked(true);
    else
        m_none->setChecked(true);
}

void SnmpWhatPage::initializePage()
{
    // The receivers may have changed since the wizard was built.
    preselect();
}

int SnmpWhatPage::nextId() const
{
    if (m_add->isChecked()) {
        SnmpWizard::m_serverix = -1;
        return SnmpWizard::ChangePageId;
    }
    if (m_change->isChecked())
        return SnmpWizard::SelectPageId;
    return SnmpWizard::ConclusionPageId;
}

SelectSnmpServerPage::SelectSnmpServerPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Select the SNMP Server"));
    setSubTitle(tr("Change or Remove the selected SNMP Server IP address"));
    m_table = new QTableWidget(0, 1, this);
    m_table->setHorizontalHeaderLabels({tr("SNMP Server")});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->horizontalHeader()->setStretchLastSection(true);
    connect(m_table, &QTableWidget::currentCellChanged, this, &SelectSnmpServerPage::currentCellChanged);
    connect(m_table, &QTableWidget::itemSelectionChanged, this, &SelectSnmpServerPage::selectionChanged);
    m_remove = new QPushButton(tr("Remove Server"), this);
    connect(m_remove, &QPushButton::clicked, this, &SelectSnmpServerPage::removeServer);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addWidget(VexaUi::textLabel(tr("Select the Server to Change or Remove..."), this, true));
    layout->addWidget(m_remove, 0, Qt::AlignRight);
}

void SelectSnmpServerPage::initializePage()
{
    const QList<QHostAddress> hosts = snmpReceivers();
    m_table->clearContents();
    m_table->setRowCount(hosts.size());
    for (int row = 0; row < hosts.size(); ++row)
        m_table->setItem(row, 0, new QTableWidgetItem(hosts.at(row).toString()));
    m_table->setCurrentCell(-1, -1);
    m_table->clearSelection();
    selectionChanged();
}

int SelectSnmpServerPage::selectedRow() const
{
    const int row = m_table->currentRow();
    return row >= 0 && m_table->item(row, 0) && m_table->item(row, 0)->isSelected() ? row : -1;
}

void SelectSnmpServerPage::selectionChanged()
{
    // Without a selected receiver there is nothing to change: the wizard can finish here.
    setFinalPage(selectedRow() < 0);
    emit completeChanged();
}

int SelectSnmpServerPage::nextId() const
{
    SnmpWizard::m_serverix = selectedRow();
    return SnmpWizard::m_serverix < 0 ? SnmpWizard::ConclusionPageId : SnmpWizard::ChangePageId;
}

void SelectSnmpServerPage::currentCellChanged(int, int, int, int)
{
    selectionChanged();
}

void SelectSnmpServerPage::removeServer()
{
    const int row = selectedRow();
    if (row < 0)
        return;
    m_table->removeRow(row);
    // Takes effect at once, whether or not the wizard is finished.
    SnmpWizard::m_manager->snmpRemoveHost(row);
    m_table->setCurrentCell(-1, -1);
    m_table->clearSelection();
    selectionChanged();
}

ChangeSnmpServerPage::ChangeSnmpServerPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Add / Change an SNMP Server"));
    setSubTitle(tr("Fill in the right IP Address for this SNMP Server"));
    m_address = VexaUi::addressEdit(this);
    registerField(QStringLiteral("server.ip"), m_address);
    connect(m_address, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);

    auto *grid = new QGridLayout(this);
    grid->addWidget(new QLabel(tr("IP Address:"), this), 0, 0);
    grid->addWidget(m_address, 0, 1);
    grid->addWidget(VexaUi::textLabel(tr("In the IPv4 form eg. <i>192.168.0.100</i>"), this, true), 1, 1);
    grid->setRowStretch(2, 1);
}

void ChangeSnmpServerPage::initializePage()
{
    const QList<QHostAddress> hosts = snmpReceivers();
    const int ix = SnmpWizard::m_serverix;
    if (ix >= 0 && ix < hosts.size())
        m_address->setText(hosts.at(ix).toString());
    else
        m_address->clear();
}

bool ChangeSnmpServerPage::isComplete() const
{
    return VexaUi::addressTyped(m_address->text());
}

SnmpConclusionPage::SnmpConclusionPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Overview"));
    setSubTitle(tr("The SNMP Settings"));
    m_label = VexaUi::overviewLabel(this);
}

void SnmpConclusionPage::initializePage()
{
    const auto *wizard = static_cast<const SnmpWizard *>(this->wizard());
    QStringList lines;
    if (field(QStringLiteral("port.dolisten")).toBool())
        lines << tr("- The Manager will receive SNMP GET/SET requests from any IP on port <b>%1</b>")
                     .arg(field(QStringLiteral("port.listenport")).toString());
    else
        lines << tr("- The Manager will <b>not</b> receive SNMP GET/SET requests");

    const QString trapPort = field(QStringLiteral("port.trapport")).toString();
    if (wizard->receiverChanged())
        lines << tr("- The Manager will now Send SNMP traps to <b>%1</b> on port <b>%2</b>")
                     .arg(VexaUi::addressFromText(field(QStringLiteral("server.ip")).toString()).toString(),
                          trapPort);
    else if (field(QStringLiteral("port.dosend")).toBool() && !snmpReceivers().isEmpty())
        lines
            << tr("- The Manager will Send SNMP traps to the set IP servers on port <b>%1</b>").arg(trapPort);
    else
        lines << tr("- The Manager will <b>not</b> Send SNMP traps.");
    m_label->setText(lines.join(QStringLiteral("<br><br>")));
}

QString SnmpConclusionPage::overviewText() const
{
    return m_label->text();
}
