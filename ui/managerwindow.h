#pragma once

#include <QMainWindow>
#include <QSystemTrayIcon>

class About;
class InstancesWizard;
class Manager;
class OscWizard;
class QAction;
class QMenu;
class SnmpWizard;
class Ui_ManagerWindow;

// The program's main window: one table row per supervised instance, the menus, the status bar and
// the tray icon through which the program stays reachable while the window is hidden. It only
// presents the Manager and calls its operations.
class ManagerWindow : public QMainWindow
{
    Q_OBJECT
public:
    ManagerWindow(QWidget *parent, Manager *manager);
    ~ManagerWindow() override;

    // The actions in order of creation, for the tray menu and for tests.
    enum ActionId
    {
        ActOpen,
        ActHide,
        ActEditInstances,
        ActOsc,
        ActSnmp,
        ActAbout,
        ActLogToFile,
        ActOpenLog,
        ActQuit,
        ActRestart,
        ActEdit,
        ActRemove,
        ActionCount
    };
    QAction *action(ActionId id) const { return m_actions[id]; }
    QSystemTrayIcon *trayIcon() const { return m_tray; }
    QMenu *trayMenu() const { return m_trayMenu; }
    InstancesWizard *instancesWizard() const { return m_instancesWizard; }
    SnmpWizard *snmpWizard() const { return m_snmpWizard; }
    OscWizard *oscWizard() const { return m_oscWizard; }
    About *aboutDialog() const { return m_about; }
    // Whether the desktop offers a system tray; without one the window is minimised, never hidden.
    bool trayAvailable() const { return m_trayAvailable; }

public slots:
    void infoShowMessage(const QString &text);
    void infoUpdate(int row, const QString &text);
    void infoRemove(int row);
    void infoSetTrayInfo();
    void onDoubleDetect();
    void slotCellDoubleClicked(int row, int column);
    void slotAbout();
    void windowShow();
    void trayIconActivated(QSystemTrayIcon::ActivationReason reason);
    void settingsReadINI();
    void settingsWriteINI();
    void lm_quit();
    void onActionRestart(bool checked);
    void onActionEdit(bool checked);
    void onActionRemove(bool checked);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void createActions();
    void createMenus();
    void createTrayIcon();
    uint currentInstance() const;

    Manager *m_manager;
    Ui_ManagerWindow *ui;
    About *m_about = nullptr;
    InstancesWizard *m_instancesWizard = nullptr;
    OscWizard *m_oscWizard = nullptr;
    SnmpWizard *m_snmpWizard = nullptr;
    QAction *m_actions[ActionCount] = {};
    QSystemTrayIcon *m_tray = nullptr;
    QMenu *m_trayMenu = nullptr;
    bool m_trayAvailable = false;
    bool m_quitting = false;
};
