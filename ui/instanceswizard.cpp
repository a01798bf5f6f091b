#include "ui/instanceswizard.h"

#include "app/manager.h"
#include "ui/instancespages.h"
#include "ui/uihelpers.h"

#include <QVariant>

Manager *InstancesWizard::m_manager = nullptr;
int InstancesWizard::m_esnr = 0;

InstancesWizard::InstancesWizard(QWidget *parent, Manager *manager) : QWizard(parent)
{
    m_manager = manager;
    m_esnr = 0;
    setObjectName(QStringLiteral("InstancesWizard"));
    VexaUi::styleWizard(this, tr("VEXA STUDIO Instances Wizard"), QStringLiteral(":/vexastudio"));

    setPage(IntroPageId, new IntroPage);
    setPage(InstancesPageId, new InstancesPage);
    setPage(ChangeInstancePageId, new ChangeInstancePage);
    setPage(InstanceSettingsPageId, new InstanceSettingsPage);
    setPage(ConclusionPageId, new ConclusionPage);
    setStartId(IntroPageId);
    const QPixmap picture(QStringLiteral(":/Wizard/Server"));
    const QList<int> ids = pageIds();
    for (int id : ids)
        page(id)->setPixmap(QWizard::WatermarkPixmap, picture);

    connect(this, &QWizard::helpRequested, this, &InstancesWizard::showHelp);
}

void InstancesWizard::EditInstance(int row)
{
    const uint id = m_manager->instanceAt(row);
    if (id == 0)
        return;
    m_esnr = int(id);
    setStartId(InstanceSettingsPageId);
    restart();
    show();
    raise();
}

void InstancesWizard::accept()
{
    // Finish is also offered on the list of instances when none is selected: then nothing is
    // created, only the removals done there are saved.
    if (currentId() == ConclusionPageId) {
        const QString exe = field(QStringLiteral("inst.exe")).toString();
        const QString vxup = field(QStringLiteral("inst.vxup")).toString();
        const int inactivity = field(QStringLiteral("inst.inactivitytime")).toString().toInt();
        const bool watchdog = field(QStringLiteral("inst.watchdog")).toBool();
        const int port = field(QStringLiteral("inst.emberport")).toString().toInt();
        const bool ember = field(QStringLiteral("inst.ember")).toBool();

        // Only a guarded instance is started by the manager (and kept in the settings file).
        const bool guarded = watchdog && inactivity > 0;
        uint id;
        if (m_esnr != 0) {
            id = uint(m_esnr);
            m_manager->instanceDelete(id);
        } else {
            id = Manager::instanceUIUD(vxup);
        }
        m_manager->instanceCreate(id, exe, vxup, ember ? port : 0, guarded ? inactivity : 0,
                                  guarded ? InstanceAutoRun : 0);
    }
    m_manager->settingsWriteVXMA();
    // Closing validates the current page, so the wizard is only reset once it is closed.
    QWizard::accept();
    finish();
}

void InstancesWizard::reject()
{
    // A removal on the list of instances has already happened; keep the file in step with it.
    m_manager->settingsWriteVXMA();
    m_esnr = 0;
    setStartId(IntroPageId);
    QWizard::reject();
}

void InstancesWizard::finish()
{
    m_esnr = 0;
    setStartId(IntroPageId);
    restart();
}

void InstancesWizard::showHelp()
{
    VexaUi::showBox(
        this, QMessageBox::Information, tr("Help"),
        tr("This help is likely not to be of any help.") +
            QStringLiteral("<br><a href=\"%1\">%1</a>").arg(QString::fromLatin1(VexaUi::HelpInstances)));
}
