#include "ui/instancespages.h"

#include "app/manager.h"
#include "ui/instanceswizard.h"
#include "ui/uihelpers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHeaderView>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStandardPaths>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

// Seconds without a live sign before a guarded instance is restarted, offered for a new instance.
const int DefaultInactivityTime = 30;
const char *const DefaultEmberPort = "9000";

QLabel *hintLabel(const QString &text, QWidget *parent)
{
    return VexaUi::textLabel(text, parent, true);
}

// The small ".." button beside a path that opens a file dialog.
QPushButton *browseButton(QWidget *parent)
{
    auto *button = new QPushButton(QStringLiteral(".."), parent);
    button->setMaximumWidth(40);
    return button;
}

QString documentsFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

} // namespace

// ---- IntroPage -------------------------------------------------------------------------------

IntroPage::IntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Introduction"));

    auto *about =
        new QLabel(tr("The VEXA STUDIO Manager can start all your <i>VEXA STUDIO</i> instances and guard "
                      "them,<br>and maintain the communication between Ember+ clients and the VEXA STUDIO "
                      "instances."),
                   this);
    about->setWordWrap(true);

    m_exePath = new QLineEdit(this);
    auto *exeButton = browseButton(this);
    connect(exeButton, &QPushButton::clicked, this, &IntroPage::chooseEXE);
    m_vxmaPath = new QLineEdit(this);
    auto *dirButton = browseButton(this);
    connect(dirButton, &QPushButton::clicked, this, &IntroPage::chooseDirectory);
    m_network = new QComboBox(this);

    registerField(QStringLiteral("intro.exepath"), m_exePath);
    registerField(QStringLiteral("intro.vxmapath"), m_vxmaPath);

    auto *grid = new QGridLayout(this);
    grid->addWidget(about, 0, 0, 1, 2);
    grid->addWidget(new QLabel(tr("Where is the location of VexaStudio application ?"), this), 1, 0, 1, 2);
    grid->addWidget(m_exePath, 2, 0);
    grid->addWidget(exeButton, 2, 1);
    grid->addWidget(
        hintLabel(tr("For Vexa Studio on USB choose the usb path, else the PC installed path"), this), 3, 0,
        1, 2);
    grid->addWidget(new QLabel(tr("Where should the Manager settings be saved ?"), this), 4, 0, 1, 2);
    grid->addWidget(m_vxmaPath, 5, 0);
    grid->addWidget(dirButton, 5, 1);
    grid->addWidget(
        hintLabel(tr("Preferably a writable location where your VEXA STUDIO setup files (*.vxup) are saved"),
                  this),
        6, 0, 1, 2);
    grid->addWidget(new QLabel(tr("Which Network Interface is used for Ember+ Communications"), this), 7, 0,
                    1, 2);
    grid->addWidget(m_network, 8, 0, 1, 2);
    grid->addWidget(
        hintLabel(tr("Leave at Default if you accept Ember+ communications from all interfaces"), this), 9, 0,
        1, 2);
}

void IntroPage::initializePage()
{
    Manager *manager = InstancesWizard::m_manager;
    if (m_exePath->text().isEmpty())
        m_exePath->setText(manager->defaultExePath());
    const QString vxma = manager->vxmaFileName();
    m_vxmaPath->setText(vxma.isEmpty() ? documentsFolder() : QFileInfo(vxma).absolutePath());
    VexaUi::fillNetworkList(m_network, manager);
}

bool IntroPage::validatePage()
{
    Manager *manager = InstancesWizard::m_manager;
    manager->setNetWorkNIC(m_network->currentData().toInt());

    const QString exe = m_exePath->text();
    if (!exe.contains(QStringLiteral("Studio"))) {
        VexaUi::showBox(this, QMessageBox::Information, tr("Wizard Help"),
                        tr("Not a valid program: %1").arg(exe));
        return false;
    }
    manager->setDefaultExePath(exe);
    const QString folder = m_vxmaPath->text();
    const QFileInfo dir(folder);
    if (folder.isEmpty() || !dir.isDir() || !dir.isWritable()) {
        VexaUi::showBox(this, QMessageBox::Information, tr("Wizard Help"),
                        tr("Directory is not writable: %1").arg(folder));
        return false;
    }
    // The folder of the open file keeps that file (whatever its name); another folder gets the
    // manager's own file there.
    const QString current = manager->vxmaFileName();
    if (current.isEmpty() || QFileInfo(current).absolutePath() != dir.absoluteFilePath())
        manager->path_to_vxma(dir.absoluteFilePath());
    return true;
}

int IntroPage::nextId() const
{
    return InstancesWizard::InstancesPageId;
}

void IntroPage::chooseEXE()
{
    const QString start =
        m_exePath->text().isEmpty() ? QDir::homePath() : QFileInfo(m_exePath->text()).absolutePath();
    const QString file = QFileDialog::getOpenFileName(this, tr("Select VEXA STUDIO"), start,
                                                      tr("VexaStudio application (Vexa*)"));
    if (!file.isEmpty())
        m_exePath->setText(QDir::toNativeSeparators(file));
}

void IntroPage::chooseDirectory()
{
    const QString dir = QFileDialog::getExistingDirectory(this, tr("Select Directory"), m_vxmaPath->text());
    if (!dir.isEmpty())
        m_vxmaPath->setText(dir);
}

// ---- InstancesPage ---------------------------------------------------------------------------

InstancesPage::InstancesPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Add, Change or Remove a VEXA STUDIO Instance ?"));
    setSubTitle(tr("Select the next step"));

    auto *about = new QLabel(tr("Every audio connection (stream) runs in a VEXA STUDIO instance of its own, "
                                "started with its own setup "
                                "file. The Manager starts, guards and publishes each instance. More about "
                                "streams and instances on "
                                "<a href=\"%1\">our tech blog</a>.")
                                 .arg(QString::fromLatin1(VexaUi::HelpBlog)),
                             this);
    about->setWordWrap(true);
    about->setOpenExternalLinks(true);

    m_add = new QRadioButton(tr("Add a new VEXA STUDIO Instance by selecting its setup file (*.vxup)"), this);
    m_change = new QRadioButton(tr("Change/Remove an Instance"), this);
    registerField(QStringLiteral("intro.doadd"), m_add);
    registerField(QStringLiteral("intro.dochange"), m_change);
    connect(m_add, &QRadioButton::toggled, this, &QWizardPage::completeChanged);
    connect(m_change, &QRadioButton::toggled, this, &QWizardPage::completeChanged);

    auto *import =
        new QPushButton(tr("Import old VexaRemoteCollector.ini / VEXA Studio Manager.ini file"), this);
    connect(import, &QPushButton::clicked, this, &InstancesPage::importFile);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(about);
    layout->addSpacing(12);
    layout->addWidget(m_add);
    layout->addWidget(m_change);
    layout->addStretch();
    layout->addWidget(import);
}

bool InstancesPage::isComplete() const
{
    return m_add->isChecked() || m_change->isChecked();
}

int InstancesPage::nextId() const
{
    if (m_add->isChecked()) {
        InstancesWizard::m_esnr = 0;
        return InstancesWizard::InstanceSettingsPageId;
    }
    return InstancesWizard::ChangeInstancePageId;
}

void InstancesPage::importFile()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Import old INI file"), field("intro.vxmapath").toString(), tr("old INI files (*.ini)"));
    if (!file.isEmpty())
        importFrom(file);
}

bool InstancesPage::importFrom(const QString &path)
{
    QFile in(path);
    if (!in.open(QIODevice::ReadOnly)) {
        qWarning().noquote() << "Import: cannot read" << path << in.errorString();
        return false;
    }
    QByteArray content = in.readAll();
    // Old files were written with Windows path separators, which the INI reader treats as escapes.
    content.replace('\\', '/');

    Manager *manager = InstancesWizard::m_manager;
    QString target = manager->vxmaFileName();
    const bool open = !target.isEmpty();
    if (!open) {
        QString folder = field("intro.vxmapath").toString();
        if (folder.isEmpty())
            folder = documentsFolder();
        target = QDir(folder).absoluteFilePath(QCoreApplication::applicationName() + QStringLiteral(".vxma"));
    }
    QFile::remove(target);
    QFile out(target);
    if (!out.open(QIODevice::WriteOnly) || out.write(content) != content.size()) {
        qWarning().noquote() << "Import: cannot write" << target << out.errorString();
        return false;
    }
    out.close();
    qInfo().noquote() << "Imported" << path << "into" << target;
    // An empty path makes the manager re-open and reload the file it has open.
    manager->path_to_vxma(open ? QString() : target);
    return true;
}

// ---- ChangeInstancePage ----------------------------------------------------------------------

ChangeInstancePage::ChangeInstancePage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Change or Remove the selected VEXA STUDIO Instance"));
    setSubTitle(tr("Select the Instance to Change or Remove..."));

    m_table = new QTableWidget(0, 2, this);
    m_table->setHorizontalHeaderLabels({tr("Setup file"), tr("Ember+ port")});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(m_table, &QTableWidget::currentCellChanged, this, &ChangeInstancePage::currentCellChanged);

    m_remove = new QPushButton(tr("Remove Instance"), this);
    connect(m_remove, &QPushButton::clicked, this, &ChangeInstancePage::removeInstance);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Select the instance"), this));
    layout->addWidget(m_table);
    layout->addWidget(m_remove, 0, Qt::AlignRight);
}

void ChangeInstancePage::initializePage()
{
    fillTable();
}

void ChangeInstancePage::fillTable()
{
    const QMap<uint, VX_Instance> &instances = InstancesWizard::m_manager->instanceMap();
    m_table->clearContents();
    m_table->setRowCount(instances.size());
    int row = 0;
    for (auto it = instances.constBegin(); it != instances.constEnd(); ++it, ++row) {
        auto *setup = new QTableWidgetItem(it->setupPath);
        setup->setData(Qt::UserRole, it.key());
        m_table->setItem(row, 0, setup);
        m_table->setItem(
            row, 1, new QTableWidgetItem(it->emberPort > 0 ? QString::number(it->emberPort) : QString()));
    }
    m_table->setCurrentCell(-1, -1);
    m_table->clearSelection();
    m_remove->setEnabled(false);
    emit completeChanged();
}

int ChangeInstancePage::nextId() const
{
    const int row = m_table->currentRow();
    if (row < 0 || !m_table->item(row, 0) || !m_table->item(row, 0)->isSelected())
        return -1;
    InstancesWizard::m_esnr = int(m_table->item(row, 0)->data(Qt::UserRole).toUInt());
    return InstancesWizard::InstanceSettingsPageId;
}

void ChangeInstancePage::currentCellChanged(int row, int, int, int)
{
    m_remove->setEnabled(row >= 0);
    // Next or Finish depends on whether a row is selected.
    emit completeChanged();
}

void ChangeInstancePage::removeInstance()
{
    const int row = m_table->currentRow();
    if (row < 0 || !m_table->item(row, 0))
        return;
    const uint id = m_table->item(row, 0)->data(Qt::UserRole).toUInt();
    const QString name = m_table->item(row, 0)->text();
    if (VexaUi::showBox(this, QMessageBox::Question, tr("Remove Instance"),
                        tr("Are you sure to stop handling instance:\n%1").arg(name),
                        QMessageBox::Yes | QMessageBox::No, QMessageBox::No) != QMessageBox::Yes)
        return;
    InstancesWizard::m_manager->instanceDelete(id);
    InstancesWizard::m_manager->settingsWriteVXMA();
    fillTable();
}

// ---- InstanceSettingsPage --------------------------------------------------------------------

InstanceSettingsPage::InstanceSettingsPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Add / Change an Instance"));
    setSubTitle(tr("Fill in the right settings for this instance"));

    m_exe = new QLineEdit(this);
    m_exe->setReadOnly(true);
    m_chooseExe = browseButton(this);
    connect(m_chooseExe, &QPushButton::clicked, this, &InstanceSettingsPage::chooseEXE);
    m_vxup = new QLineEdit(this);
    m_chooseVxup = browseButton(this);
    connect(m_chooseVxup, &QPushButton::clicked, this, &InstanceSettingsPage::chooseVXUP);
    m_watchdog = new QCheckBox(tr("Watchdog Guard inactivity time:"), this);
    m_watchdog->setChecked(true);
    connect(m_watchdog, &QCheckBox::toggled, this, &InstanceSettingsPage::slotChangeWatchDog);
    m_inactivity = new QLineEdit(QString::number(DefaultInactivityTime), this);
    m_inactivity->setValidator(new QIntValidator(0, 86400, m_inactivity));
    m_ember = new QCheckBox(tr("Ember+ port:"), this);
    m_ember->setChecked(true);
    m_emberPort = new QLineEdit(QString::fromLatin1(DefaultEmberPort), this);
    m_emberPort->setValidator(new QIntValidator(0, 65535, m_emberPort));
    connect(m_ember, &QCheckBox::toggled, m_emberPort, &QWidget::setEnabled);

    registerField(QStringLiteral("inst.exe"), m_exe);
    registerField(QStringLiteral("inst.vxup*"), m_vxup);
    registerField(QStringLiteral("inst.watchdog"), m_watchdog);
    registerField(QStringLiteral("inst.inactivitytime"), m_inactivity);
    registerField(QStringLiteral("inst.ember"), m_ember);
    registerField(QStringLiteral("inst.emberport"), m_emberPort);

    auto *grid = new QGridLayout(this);
    grid->addWidget(new QLabel(tr("VEXA STUDIO:"), this), 0, 0);
    grid->addWidget(m_exe, 0, 1, 1, 2);
    grid->addWidget(m_chooseExe, 0, 3);
    grid->addWidget(hintLabel(tr("Select the VEXA STUDIO executable to start"), this), 1, 1, 1, 3);
    grid->addWidget(new QLabel(tr("vxup file:"), this), 2, 0);
    grid->addWidget(m_vxup, 2, 1, 1, 2);
    grid->addWidget(m_chooseVxup, 2, 3);
    grid->addWidget(hintLabel(tr("Choose the startup *.vxup file for this instance"), this), 3, 1, 1, 3);
    grid->addWidget(m_watchdog, 4, 0);
    grid->addWidget(m_inactivity, 4, 1);
    grid->addWidget(new QLabel(tr("sec"), this), 4, 2);
    grid->addWidget(hintLabel(tr("Start & Guard the instance and restart it if there is no live sign during "
                                 "<i>inactivity time</i> seconds"),
                              this),
                    5, 1, 1, 3);
    grid->addWidget(m_ember, 6, 0);
    grid->addWidget(m_emberPort, 6, 1);
    grid->addWidget(new QLabel(tr("<b>Instance is only started if watchdog has controll</b>"), this), 7, 0, 1,
                    4);
    grid->setColumnStretch(1, 1);
}

void InstanceSettingsPage::initializePage()
{
    Manager *manager = InstancesWizard::m_manager;
    const VX_Instance *record =
        InstancesWizard::m_esnr != 0 ? manager->instance(uint(InstancesWizard::m_esnr)) : nullptr;
    if (!record)
        InstancesWizard::m_esnr = 0;

    if (record) {
        m_exe->setText(record->exePath);
        m_vxup->setText(record->setupPath);
        m_watchdog->setChecked((record->flags & InstanceAutoRun) && record->inactivityTime > 0);
        m_inactivity->setText(
            QString::number(record->inactivityTime > 0 ? record->inactivityTime : DefaultInactivityTime));
        m_ember->setChecked(record->emberPort > 0);
        m_emberPort->setText(record->emberPort > 0 ? QString::number(record->emberPort)
                                                   : QString::fromLatin1(DefaultEmberPort));
    } else {
        const QString exe = field("intro.exepath").toString();
        m_exe->setText(exe.isEmpty() ? manager->defaultExePath() : exe);
        m_vxup->clear();
        m_watchdog->setChecked(true);
        m_inactivity->setText(QString::number(DefaultInactivityTime));
        m_ember->setChecked(true);
        m_emberPort->setText(QString::fromLatin1(DefaultEmberPort));
    }
    // Opened straight on one instance (Edit Instance, double click): its files stay as they are,
    // because the setup file is what identifies the instance.
    const bool direct = wizard()->startId() == InstancesWizard::InstanceSettingsPageId;
    m_exe->setEnabled(!direct);
    m_chooseExe->setEnabled(!direct);
    m_vxup->setEnabled(!direct);
    m_chooseVxup->setEnabled(!direct);
    slotChangeWatchDog(m_watchdog->isChecked());
    m_emberPort->setEnabled(m_ember->isChecked());
}

int InstanceSettingsPage::nextId() const
{
    return InstancesWizard::ConclusionPageId;
}

void InstanceSettingsPage::chooseEXE()
{
    QString filter = tr("executable file (*.exe)");
#ifndef Q_OS_WIN
    filter += QStringLiteral(";;") + tr("All files (*)");
#endif
    const QString file = QFileDialog::getOpenFileName(this, tr("Select VEXA STUDIO"),
                                                      QFileInfo(m_exe->text()).absolutePath(), filter);
    if (!file.isEmpty())
        m_exe->setText(QDir::toNativeSeparators(file));
}

void InstanceSettingsPage::chooseVXUP()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Select vxup File"), field("intro.vxmapath").toString(), tr("VX Setup files (*.vxup)"));
    if (!file.isEmpty())
        m_vxup->setText(QDir::toNativeSeparators(file));
}

void InstanceSettingsPage::slotChangeWatchDog(bool on)
{
    m_inactivity->setEnabled(on);
}

// ---- ConclusionPage --------------------------------------------------------------------------

ConclusionPage::ConclusionPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Overview"));
    setSubTitle(tr("The edited instance settings"));
    m_label = VexaUi::overviewLabel(this);
}

void ConclusionPage::initializePage()
{
    const QString exe = field("inst.exe").toString();
    const QString vxup = field("inst.vxup").toString();
    const QString inactivity = field("inst.inactivitytime").toString();
    const bool guarded = field("inst.watchdog").toBool() && inactivity.toInt() > 0;
    const QString portText = field("inst.emberport").toString();

    QStringList lines;
    if (guarded)
        lines
            << tr("- The Manager will start <br><b>%1</b> with the setup file <br><b>%2</b>").arg(exe, vxup);
    else
        lines << tr("- The Manager will <b>not</b> automatically start the instance<br><b>%1</b>").arg(vxup);
    if (guarded)
        lines << tr("- The Manager will guard the instance and will restart it when there is no activity "
                    "detected "
                    "within <b>%1</b> seconds.")
                     .arg(inactivity);
    else
        lines << tr("- The Manager will not guard the instance.");

    if (field("inst.ember").toBool()) {
        lines << tr("- The Manager will start an Ember+ service so that Ember+ Clients can controll this "
                    "instance "
                    "through port <b>%1</b>.")
                     .arg(portText);
        bool ok = false;
        const int port = portText.toInt(&ok);
        bool taken = false;
        const uint self =
            InstancesWizard::m_esnr != 0 ? uint(InstancesWizard::m_esnr) : Manager::instanceUIUD(vxup);
        const QMap<uint, VX_Instance> &instances = InstancesWizard::m_manager->instanceMap();
        for (auto it = instances.constBegin(); it != instances.constEnd() && ok; ++it) {
            if (it.key() != self && it->emberPort == port)
                taken = true;
        }
        if (!ok || port <= 999 || port > 65535)
            lines << VexaUi::redLine(
                tr("- Error: the Ember port has an invalid value <b>%1</b>").arg(portText));
        else if (taken)
            lines << VexaUi::redLine(tr("- Error: the Ember port is already taken <b>%1</b>").arg(portText));
    } else {
        lines << tr("- The Manager will not start an Ember+ service for this instance");
    }
    m_label->setText(lines.join(QStringLiteral("<br><br>")));
}

QString ConclusionPage::overviewText() const
{
    return m_label->text();
}
