#pragma once

#include <QWizard>
#include <QWizardPage>

class Manager;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QTableWidget;

// The dialog behind "SNMP configuration ...": the agent's request and trap ports and the trap
// receivers, applied through the Manager and saved to its settings file on Finish.
class SnmpWizard : public QWizard
{
    Q_OBJECT
public:
    enum PageId
    {
        IntroPageId,
        SettingsPageId,
        WhatPageId,
        SelectPageId,
        ChangePageId,
        ConclusionPageId
    };

    SnmpWizard(QWidget *parent, Manager *manager);

    void accept() override;
    void reject() override;

    // True when Finish will add or change a receiver: the trap pages were taken and the address
    // is a valid one.
    bool receiverChanged() const;

    static Manager *m_manager;
    // The receiver being edited; -1 for a new one.
    static int m_serverix;

public slots:
    void showHelp();
};

class SnmpIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SnmpIntroPage(QWidget *parent = nullptr);
    int nextId() const override { return SnmpWizard::SettingsPageId; }
};

class SnmpSettingsPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SnmpSettingsPage(QWidget *parent = nullptr);
    void initializePage() override;
    bool isComplete() const override;
    bool validatePage() override { return isComplete(); }
    int nextId() const override;

private:
    QCheckBox *m_listen;
    QLineEdit *m_listenPort;
    QCheckBox *m_send;
    QLineEdit *m_trapPort;
};

class SnmpWhatPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SnmpWhatPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;

private:
    void preselect();

    QRadioButton *m_add;
    QRadioButton *m_change;
    QRadioButton *m_none;
};

class SelectSnmpServerPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SelectSnmpServerPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;
    QTableWidget *table() const { return m_table; }

public slots:
    void removeServer();
    void currentCellChanged(int row, int column, int previousRow, int previousColumn);

private:
    int selectedRow() const;
    void selectionChanged();

    QTableWidget *m_table;
    QPushButton *m_remove;
};

class ChangeSnmpServerPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit ChangeSnmpServerPage(QWidget *parent = nullptr);
    void initializePage() override;
    bool isComplete() const override;
    int nextId() const override { return SnmpWizard::ConclusionPageId; }

private:
    QLineEdit *m_address;
};

class SnmpConclusionPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SnmpConclusionPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override { return -1; }
    QString overviewText() const;

private:
    QLabel *m_label;
};
