#pragma once

#include <QWizard>

class Manager;

// The dialog in which the user chooses where the Manager keeps its settings, which network
// interface serves Ember+, and adds, changes or removes supervised instances.
class InstancesWizard : public QWizard
{
    Q_OBJECT
public:
    enum PageId
    {
        IntroPageId,
        InstancesPageId,
        ChangeInstancePageId,
        InstanceSettingsPageId,
        ConclusionPageId
    };

    InstancesWizard(QWidget *parent, Manager *manager);

    // Opens the wizard directly at the settings of the instance shown in table row `row`.
    void EditInstance(int row);

    void accept() override;
    void reject() override;

    // The Manager the pages work on, and the id of the instance being edited (0 = a new one).
    static Manager *m_manager;
    static int m_esnr;

public slots:
    void showHelp();

private:
    void finish();
};
