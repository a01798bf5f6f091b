#pragma once

#include <QWizardPage>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QTableWidget;

// The pages of the instances wizard, in the order of their ids.

// Where the studio application is, where the settings file goes, and the Ember+ interface.
class IntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit IntroPage(QWidget *parent = nullptr);
    void initializePage() override;
    bool validatePage() override;
    int nextId() const override;

public slots:
    void chooseDirectory();
    void chooseEXE();

private:
    QLineEdit *m_exePath;
    QLineEdit *m_vxmaPath;
    QComboBox *m_network;
};

// Add a new instance or change/remove one; also imports an old settings file.
class InstancesPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit InstancesPage(QWidget *parent = nullptr);
    bool isComplete() const override;
    int nextId() const override;

    // Replaces the Manager's settings file with the old INI file `path` and reloads it.
    bool importFrom(const QString &path);

public slots:
    void importFile();

private:
    QRadioButton *m_add;
    QRadioButton *m_change;
};

// The list of instances to pick one from, or to remove one.
class ChangeInstancePage : public QWizardPage
{
    Q_OBJECT
public:
    explicit ChangeInstancePage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;
    QTableWidget *table() const { return m_table; }

public slots:
    void removeInstance();
    void currentCellChanged(int row, int column, int previousRow, int previousColumn);

private:
    void fillTable();

    QTableWidget *m_table;
    QPushButton *m_remove;
};

// Executable, setup file, watchdog and Ember+ port of one instance.
class InstanceSettingsPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit InstanceSettingsPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;

public slots:
    void chooseEXE();
    void chooseVXUP();
    void slotChangeWatchDog(bool on);

private:
    QLineEdit *m_exe;
    QLineEdit *m_vxup;
    QPushButton *m_chooseExe;
    QPushButton *m_chooseVxup;
    QCheckBox *m_watchdog;
    QLineEdit *m_inactivity;
    QCheckBox *m_ember;
    QLineEdit *m_emberPort;
};

// What Finish will do, with invalid values in red.
class ConclusionPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit ConclusionPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override { return -1; }
    QString overviewText() const;

private:
    QLabel *m_label;
};
