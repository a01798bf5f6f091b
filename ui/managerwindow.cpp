#include "ui/managerwindow.h"

#include "app/manager.h"
#include "logging/logging.h"
#include "ui/about.h"
#include "ui/instanceswizard.h"
#include "ui/managerwindow_form.h"
#include "ui/oscwizard.h"
#include "ui/snmpwizard.h"
#include "ui/uihelpers.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QCursor>
#include <QDebug>
#include <QGuiApplication>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSettings>
#include <QTimer>

namespace {

// The status row text from the Manager: five fields joined by this separator.
const QString FieldSeparator = QStringLiteral(":;");
enum Field
{
    FieldSetup,
    FieldName,
    FieldClients,
    FieldStation,
    FieldState,
    FieldCount
};

} // namespace

ManagerWindow::ManagerWindow(QWidget *parent, Manager *manager)
    : QMainWindow(parent), m_manager(manager), ui(new Ui_ManagerWindow)
{
    VexaUi::initResources();
    ui->setupUi(this);
    m_about = new About(this);
    m_instancesWizard = new InstancesWizard(this, manager);
    m_oscWizard = new OscWizard(this, manager);
    m_snmpWizard = new SnmpWizard(this, manager);

    connect(manager, &Manager::StatusMessage, this, &ManagerWindow::infoShowMessage);
    connect(manager, &Manager::StatusUpdate, this, &ManagerWindow::infoUpdate);
    connect(manager, &Manager::StatusRemove, this, &ManagerWindow::infoRemove);
    connect(manager, &Manager::doubleDetect, this, &ManagerWindow::onDoubleDetect);
    connect(manager, &Manager::EditInstance, this, &ManagerWindow::slotCellDoubleClicked);
    connect(ui->tableIntances, &QTableWidget::cellDoubleClicked, this, &ManagerWindow::slotCellDoubleClicked);

    createActions();
    createMenus();
    createTrayIcon();
    settingsReadINI();
    infoShowMessage(tr("Vexa Studio Manager Started"));
    m_manager->windowUpdate();
}

ManagerWindow::~ManagerWindow()
{
    settingsWriteINI();
    if (m_tray)
        m_tray->hide();
    delete m_trayMenu;
    delete ui;
}

void ManagerWindow::createActions()
{
    struct ActionText
    {
        QString text;
        const char *shortcut;
        QString tip;
        bool checkable;
    };
    const ActionText texts[ActionCount] = {
        {tr("Open ") + QCoreApplication::applicationName(), "Ctrl+O", tr("Open the Main Window"), false},
        {tr("Hide Window"), "Ctrl+H", tr("Hide the Main Window"), true},
        {tr("Edit Instances ..."), "Ctrl+E", tr("Add,Change or Remove an Instance"), false},
        // Shares its sequence with "Open", which only lives in the tray menu.
        {tr("OSC configuration ..."), "Ctrl+O", tr("OSC settings"), false},
        {tr("SNMP configuration ..."), "Ctrl+S", tr("SNMP settings"), false},
        {tr("About ..."), nullptr, tr("Show program info"), false},
        {tr("Log to File"), "Ctrl+L", tr("Set logging on/off"), true},
        {tr("Open Log File Location"), "Ctrl+F", tr("To show the log file(s)"), false},
        {tr("Quit"), "Ctrl+Q", tr("Stop the program"), false},
        {tr("Restart Instance"), nullptr, QString(), false},
        {tr("Edit Instance"), nullptr, QString(), false},
        {tr("Remove Instance"), nullptr, QString(), false},
    };
    for (int i = 0; i < ActionCount; ++i) {
        auto *a = new QAction(texts[i].text, this);
        if (texts[i].shortcut)
            a->setShortcut(QKeySequence(QString::fromLatin1(texts[i].shortcut)));
        if (!texts[i].tip.isEmpty())
            a->setToolTip(texts[i].tip);
        a->setCheckable(texts[i].checkable);
        m_actions[i] = a;
    }

    connect(m_actions[ActOpen], &QAction::triggered, this, &ManagerWindow::windowShow);
    connect(m_actions[ActHide], &QAction::triggered, this, [this](bool hide) {
        if (hide)
            close();
        else
            windowShow();
    });
    connect(m_actions[ActEditInstances], &QAction::triggered, this, [this] {
        m_instancesWizard->restart();
        m_instancesWizard->show();
        m_instancesWizard->raise();
    });
    connect(m_actions[ActOsc], &QAction::triggered, this, [this] {
        m_oscWizard->restart();
        m_oscWizard->show();
        m_oscWizard->raise();
    });
    connect(m_actions[ActSnmp], &QAction::triggered, this, [this] {
        m_snmpWizard->restart();
        m_snmpWizard->show();
        m_snmpWizard->raise();
    });
    connect(m_actions[ActAbout], &QAction::triggered, this, &ManagerWindow::slotAbout);
    connect(m_actions[ActLogToFile], &QAction::triggered, this,
            [this](bool on) { m_manager->loggingSet(on); });
    connect(m_actions[ActOpenLog], &QAction::triggered, this, [this] { m_manager->log()->loggingOpenLoc(); });
    connect(m_actions[ActQuit], &QAction::triggered, this, &ManagerWindow::lm_quit);
    connect(m_actions[ActRestart], &QAction::triggered, this, &ManagerWindow::onActionRestart);
    connect(m_actions[ActEdit], &QAction::triggered, this, &ManagerWindow::onActionEdit);
    connect(m_actions[ActRemove], &QAction::triggered, this, &ManagerWindow::onActionRemove);
}

void ManagerWindow::createMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(m_actions[ActHide]);
    file->addSeparator();
    file->addAction(m_actions[ActEditInstances]);
    file->addAction(m_actions[ActOsc]);
    file->addAction(m_actions[ActSnmp]);
    file->addSeparator();
    file->addAction(m_actions[ActLogToFile]);
    file->addAction(m_actions[ActOpenLog]);
    file->addSeparator();
    file->addAction(m_actions[ActQuit]);

    QMenu *about = menuBar()->addMenu(tr("&About"));
    about->addAction(m_actions[ActAbout]);
    about->addAction(m_actions[ActEdit]);
    about->addAction(m_actions[ActRestart]);
    about->addAction(m_actions[ActRemove]);
}

void ManagerWindow::createTrayIcon()
{
    // No parent: the menu is a window of its own, deleted with the main window.
    m_trayMenu = new QMenu;
    m_trayMenu->addAction(m_actions[ActOpen]);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_actions[ActEditInstances]);
    m_trayMenu->addAction(m_actions[ActOsc]);
    m_trayMenu->addAction(m_actions[ActSnmp]);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_actions[ActLogToFile]);
    m_trayMenu->addAction(m_actions[ActOpenLog]);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_actions[ActQuit]);

    m_tray = new QSystemTrayIcon(windowIcon(), this);
    m_tray->setContextMenu(m_trayMenu);
    connect(m_tray, &QSystemTrayIcon::activated, this, &ManagerWindow::trayIconActivated);
    connect(m_tray, &QSystemTrayIcon::messageClicked, this, &ManagerWindow::windowShow);
    m_trayAvailable = QSystemTrayIcon::isSystemTrayAvailable();
    if (m_trayAvailable)
        m_tray->show();
    else
        qWarning().noquote()
            << "No system tray on this desktop: closing the window minimises it instead of hiding it";
    infoSetTrayInfo();
}

void ManagerWindow::infoShowMessage(const QString &text)
{
    if (isVisible())
        ui->statusBar->showMessage(text, 5000);
    else if (m_trayAvailable)
        m_tray->showMessage(QCoreApplication::applicationName(), text, windowIcon());
}

void ManagerWindow::infoUpdate(int row, const QString &text)
{
    if (row < 0)
        return;
    QStringList fields = text.split(FieldSeparator);
    while (fields.size() < FieldCount)
        fields.append(QString());

    QTableWidget *table = ui->tableIntances;
    if (table->rowCount() <= row) {
        const int first = table->rowCount();
        table->setRowCount(row + 1);
        for (int r = first; r <= row; ++r) {
            table->setVerticalHeaderItem(r, new QTableWidgetItem);
            table->setItem(r, 0, new QTableWidgetItem);
            auto *clients = new QTableWidgetItem;
            clients->setToolTip(tr("E+(number of ember+ clients)") + tr(", O(osc address)") +
                                tr(", S(snmp agent id)"));
            table->setItem(r, 1, clients);
            auto *station = new QTableWidgetItem;
            station->setToolTip(tr("Station setting"));
            table->setItem(r, 2, station);
            auto *receiving = new QTableWidgetItem;
            receiving->setToolTip(tr("Receiving state or settings"));
            table->setItem(r, 3, receiving);
        }
    }

    // The setup path identifies the instance; it goes into the name's tooltip, and the four
    // columns show name, clients, station and state.
    table->verticalHeaderItem(row)->setText(QString::number(row));
    QTableWidgetItem *name = table->item(row, 0);
    name->setText(fields.at(FieldName));
    name->setToolTip(tr("Instance name, ember+ port number (%1)").arg(fields.at(FieldSetup)));
    table->item(row, 1)->setText(fields.at(FieldClients));
    table->item(row, 2)->setText(fields.at(FieldStation));
    table->item(row, 3)->setText(fields.at(FieldState));

    infoSetTrayInfo();
    setWindowTitle(
        tr("%1 at %2").arg(QCoreApplication::applicationName(), m_manager->networkAddress().toString()));
}

void ManagerWindow::infoRemove(int row)
{
    if (row >= 0 && row < ui->tableIntances->rowCount())
        ui->tableIntances->removeRow(row);
    infoSetTrayInfo();
}

void ManagerWindow::infoSetTrayInfo()
{
    m_tray->setToolTip(
        tr("%1 : %2 Instances").arg(QCoreApplication::applicationName()).arg(ui->tableIntances->rowCount()));
}

uint ManagerWindow::currentInstance() const
{
    const int row = ui->tableIntances->currentRow();
    return row < 0 ? 0 : m_manager->instanceAt(row);
}

void ManagerWindow::onActionRemove(bool)
{
    const uint id = currentInstance();
    const VX_Instance *record = id ? m_manager->instance(id) : nullptr;
    if (!record)
        return;
    const QString name = ui->tableIntances->item(ui->tableIntances->currentRow(), 0)->text();
    const QString shown = name.isEmpty() ? record->setupPath : name;
    if (VexaUi::showBox(this, QMessageBox::Question, tr("Remove Instance"),
                        tr("Are you sure to stop handling instance:\n%1").arg(shown),
                        QMessageBox::Yes | QMessageBox::No, QMessageBox::No) != QMessageBox::Yes)
        return;
    m_manager->instanceDelete(id);
    m_manager->settingsWriteVXMA();
}

void ManagerWindow::onActionRestart(bool)
{
    if (const uint id = currentInstance())
        m_manager->instanceRestart(id);
}

void ManagerWindow::onActionEdit(bool)
{
    const int row = ui->tableIntances->currentRow();
    if (row >= 0)
        m_instancesWizard->EditInstance(row);
}

void ManagerWindow::slotCellDoubleClicked(int row, int)
{
    m_instancesWizard->EditInstance(row);
}

void ManagerWindow::slotAbout()
{
    m_about->show();
    m_about->raise();
}

void ManagerWindow::onDoubleDetect()
{
    VexaUi::showBox(
        this, QMessageBox::Critical, tr("Application Error"),
        tr("There is already a Manager running\nProbably under another User\nThis program will quit"));
}

void ManagerWindow::trayIconActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::Trigger)
        m_trayMenu->popup(QCursor::pos());
}

void ManagerWindow::windowShow()
{
    showNormal();
    raise();
    activateWindow();
    m_actions[ActHide]->setChecked(false);
}

void ManagerWindow::closeEvent(QCloseEvent *event)
{
    if (m_quitting) {
        event->accept();
        return;
    }
    VexaUi::showBox(this, QMessageBox::Information, tr("Hiding Window"),
                    tr("The Application keeps Running in the background<br>Acces through the Taskbar icon"));
    if (m_trayAvailable) {
        m_tray->showMessage(QCoreApplication::applicationName(),
                            tr("Click on the Tray icon for re-opening the Application"), windowIcon(), 1000);
        m_actions[ActHide]->setChecked(true);
        settingsWriteINI();
        event->accept();
        return;
    }
    // Hidden without a tray icon there would be no way back: keep the window on the task bar.
    qInfo().noquote() << "No system tray: the window is minimised instead of hidden";
    m_actions[ActHide]->setChecked(false);
    event->ignore();
    showMinimized();
}

void ManagerWindow::lm_quit()
{
    m_quitting = true;
    settingsWriteINI();
    QCoreApplication::quit();
}

void ManagerWindow::settingsReadINI()
{
    QSettings settings;
    if (settings.contains(QStringLiteral("Pos/x"))) {
        const QRect saved(
            settings.value(QStringLiteral("Pos/x")).toInt(), settings.value(QStringLiteral("Pos/y")).toInt(),
            settings.value(QStringLiteral("Pos/w")).toInt(), settings.value(QStringLiteral("Pos/h")).toInt());
        const QScreen *screen = QGuiApplication::primaryScreen();
        // A rectangle from another screen layout could put the window where nobody sees it.
        if (screen && screen->availableGeometry().contains(saved))
            setGeometry(saved);
        else
            qInfo().noquote() << "Saved window position ignored: it lies outside the screen";
    }
    const char *const widthKeys[3] = {"Pos/NameColumnWidth", "Pos/ClientColumnWidth", "Pos/SendColumnWidth"};
    for (int column = 0; column < 3; ++column) {
        const QString key = QString::fromLatin1(widthKeys[column]);
        if (settings.contains(key))
            ui->tableIntances->setColumnWidth(column, settings.value(key).toInt());
    }
    m_actions[ActLogToFile]->setChecked(settings.value(QStringLiteral("LoggingLevel"), 0).toInt() != 0);
    const bool hidden = settings.value(QStringLiteral("HideWindow"), false).toBool();
    m_actions[ActHide]->setChecked(hidden);
    if (!hidden) {
        QTimer::singleShot(0, this, &ManagerWindow::windowShow);
    } else if (!m_trayAvailable) {
        qInfo().noquote() << "No system tray: the window starts minimised instead of hidden";
        m_actions[ActHide]->setChecked(false);
        QTimer::singleShot(0, this, &QWidget::showMinimized);
    }
}

void ManagerWindow::settingsWriteINI()
{
    QSettings settings;
    settings.setValue(QStringLiteral("HideWindow"), m_actions[ActHide]->isChecked());
    const QRect r = geometry();
    settings.setValue(QStringLiteral("Pos/x"), r.x());
    settings.setValue(QStringLiteral("Pos/y"), r.y());
    settings.setValue(QStringLiteral("Pos/w"), r.width());
    settings.setValue(QStringLiteral("Pos/h"), r.height());
    settings.setValue(QStringLiteral("Pos/NameColumnWidth"), ui->tableIntances->columnWidth(0));
    settings.setValue(QStringLiteral("Pos/ClientColumnWidth"), ui->tableIntances->columnWidth(1));
    settings.setValue(QStringLiteral("Pos/SendColumnWidth"), ui->tableIntances->columnWidth(2));
}
