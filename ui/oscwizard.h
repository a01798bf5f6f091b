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

// The dialog behind "OSC configuration ...": the OSC receive port and the OSC targets, applied
// through the Manager and saved to its settings file on Finish.
class OscWizard : public QWizard
{
    Q_OBJECT
public:
    enum PageId
    {
        IntroPageId,
        SettingsPageId,
        SelectPageId,
        ChangePageId,
        ConclusionPageId
    };

    OscWizard(QWidget *parent, Manager *manager);

    void accept() override;
    void reject() override;

    // True when Finish will add or change a target: the target page was taken and the address is
    // a valid one.
    bool targetChanged() const;

    static Manager *m_manager;
    // The target being edited; -1 for a new one.
    static int m_targetix;

public slots:
    void showHelp();
};

class OscIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit OscIntroPage(QWidget *parent = nullptr);
    int nextId() const override { return OscWizard::SettingsPageId; }
};

class OscSettingsPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit OscSettingsPage(QWidget *parent = nullptr);
    void initializePage() override;
    bool isComplete() const override;
    bool validatePage() override { return isComplete(); }
    int nextId() const override;

private:
    QCheckBox *m_receiving;
    QLineEdit *m_inPort;
    QRadioButton *m_add;
    QRadioButton *m_change;
    QRadioButton *m_none;
};

class SelectOscTargetPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SelectOscTargetPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;
    QTableWidget *table() const { return m_table; }

public slots:
    void removeTarget();

private:
    int selectedRow() const;

    QTableWidget *m_table;
    QPushButton *m_remove;
};

class ChangeOscTargetPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit ChangeOscTargetPage(QWidget *parent = nullptr);
    void initializePage() override;
    bool isComplete() const override;
    bool validatePage() override { return isComplete(); }
    int nextId() const override { return OscWizard::ConclusionPageId; }

private:
    QLineEdit *m_address;
    QLineEdit *m_port;
};

class OscConclusionPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit OscConclusionPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override { return -1; }
    QString overviewText() const;

private:
    QLabel *m_label;
};
