#include "uitest.h"

#include "app/manager.h"
#include "ui/instancespages.h"
#include "ui/instanceswizard.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <memory>
#include <unistd.h>

// The instances wizard on a real Manager: page order, validation of the first page, the overview,
// what Finish writes to the settings file, editing one instance and importing an old INI file.
class TestInstancesWizard : public QObject
{
    Q_OBJECT

private:
    QString m_dir;
    QString m_exe;
    std::unique_ptr<Manager> m_manager;
    std::unique_ptr<InstancesWizard> m_wizard;

    void makeWizard()
    {
        m_manager.reset(new Manager(nullptr, m_dir));
        m_wizard.reset(new InstancesWizard(nullptr, m_manager.get()));
        m_wizard->restart();
        m_wizard->show();
    }

    // An instance the manager knows but does not start (not auto-run).
    uint addInstance(const QString &name, int port)
    {
        const QString setup = uiWriteFile(m_dir + "/" + name + ".vxup", "");
        const uint id = Manager::instanceUIUD(setup);
        m_manager->instanceCreate(id, m_exe, setup, port, 0, 0);
        return id;
    }

    // From the first page to the instance settings of a new instance.
    void toNewInstancePage()
    {
        m_wizard->setField("intro.exepath", m_exe);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(InstancesWizard::InstancesPageId));
        m_wizard->setField("intro.doadd", true);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(InstancesWizard::InstanceSettingsPageId));
    }

    QString overviewText() const
    {
        auto *page = qobject_cast<ConclusionPage *>(m_wizard->page(InstancesWizard::ConclusionPageId));
        return page->overviewText();
    }

    ChangeInstancePage *changePage() const
    {
        return qobject_cast<ChangeInstancePage *>(m_wizard->page(InstancesWizard::ChangeInstancePageId));
    }

private slots:
    void initTestCase() { uiTestIdentity(); }

    void init()
    {
        m_dir = uiTestFolder();
        QSettings().clear();
        // A file named like the studio program, deliberately not executable: instances that the
        // tests create as auto-run fail to start instead of running anything.
        m_exe = uiWriteFile(m_dir + "/VexaStudio", "not a program\n");
    }

    void cleanup()
    {
        m_wizard.reset();
        m_manager.reset();
    }

    // The first page takes the program and the folder only when both are usable.
    void introValidation_data()
    {
        QTest::addColumn<QString>("exe");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("box");
        QTest::newRow("accepted") << "VexaStudio"
                                  << "sub"
                                  << "";
        QTest::newRow("lower-case program name") << "vexastudio"
                                                 << "sub"
                                                 << "Not a valid program: {exe}";
        QTest::newRow("folder missing") << "VexaStudio"
                                        << "missing"
                                        << "Directory is not writable: {folder}";
        QTest::newRow("a file, not a folder") << "VexaStudio"
                                              << "VexaStudio"
                                              << "Directory is not writable: {folder}";
    }
    void introValidation()
    {
        QFETCH(QString, exe);
        QFETCH(QString, folder);
        QFETCH(QString, box);
        QDir(m_dir).mkdir("sub");
        const QString exePath = m_dir + "/" + exe;
        const QString folderPath = m_dir + "/" + folder;
        makeWizard();
        QCOMPARE(m_wizard->field("intro.vxmapath").toString(), m_dir);
        m_wizard->setField("intro.exepath", exePath);
        m_wizard->setField("intro.vxmapath", folderPath);

        BoxAnswerer boxes;
        m_wizard->next();
        if (box.isEmpty()) {
            QVERIFY(boxes.texts().isEmpty());
            QCOMPARE(m_wizard->currentId(), int(InstancesWizard::InstancesPageId));
            // The Manager's settings file moved to the chosen folder.
            QCOMPARE(m_manager->vxmaFileName(), folderPath + "/VEXA Studio Manager.vxma");
        } else {
            QCOMPARE(boxes.titles(), QStringList{"Wizard Help"});
            QCOMPARE(boxes.texts(),
                     QStringList{box.replace("{exe}", exePath).replace("{folder}", folderPath)});
            QCOMPARE(m_wizard->currentId(), int(InstancesWizard::IntroPageId));
            QCOMPARE(m_manager->vxmaFileName(), m_dir + "/VEXA Studio Manager.vxma");
        }
    }

    void notWritableFolder()
    {
        if (geteuid() == 0)
            QSKIP("the superuser may write into any folder");
        const QString folder = m_dir + "/locked";
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        makeWizard();
        m_wizard->setField("intro.exepath", m_exe);
        m_wizard->setField("intro.vxmapath", folder);
        BoxAnswerer boxes;
        m_wizard->next();
        QCOMPARE(boxes.texts(), QStringList{"Directory is not writable: " + folder});
        QCOMPARE(m_wizard->currentId(), int(InstancesWizard::IntroPageId));
    }

    void pageOrder()
    {
        makeWizard();
        const uint first = addInstance("Studio1", 9001);
        const uint second = addInstance("Studio2", 9002);
        m_wizard->setField("intro.exepath", m_exe);
        m_wizard->next();
        auto *choices = m_wizard->currentPage();
        QVERIFY(!choices->isComplete());
        m_wizard->setField("intro.doadd", true);
        QVERIFY(choices->isComplete());
        QCOMPARE(choices->nextId(), int(InstancesWizard::InstanceSettingsPageId));
        QCOMPARE(InstancesWizard::m_esnr, 0);

        m_wizard->setField("intro.dochange", true);
        QCOMPARE(choices->nextId(), int(InstancesWizard::ChangeInstancePageId));
        m_wizard->next();
        QTableWidget *table = changePage()->table();
        QCOMPARE(table->rowCount(), 2);
        // Nothing selected: this page is the last one.
        QCOMPARE(m_wizard->nextId(), -1);
        QVERIFY(changePage()->isFinalPage());

        const int row = table->item(0, 0)->data(Qt::UserRole).toUInt() == second ? 0 : 1;
        table->setCurrentCell(row, 0);
        QCOMPARE(m_wizard->nextId(), int(InstancesWizard::InstanceSettingsPageId));
        QCOMPARE(uint(InstancesWizard::m_esnr), second);
        m_wizard->next();
        QCOMPARE(m_wizard->field("inst.emberport").toString(), QStringLiteral("9002"));
        QCOMPARE(m_wizard->nextId(), int(InstancesWizard::ConclusionPageId));
        m_wizard->next();
        QCOMPARE(m_wizard->nextId(), -1);

        // "Next" without a selected row finishes without creating anything.
        m_wizard->back();
        m_wizard->back();
        table->clearSelection();
        table->setCurrentCell(-1, -1);
        m_wizard->accept();
        QVERIFY(!m_wizard->isVisible());
        QCOMPARE(m_manager->instanceMap().size(), 2);
        QVERIFY(m_manager->instance(first));
    }

    void overview_data()
    {
        QTest::addColumn<bool>("watchdog");
        QTest::addColumn<QString>("time");
        QTest::addColumn<bool>("ember");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QStringList>("lines");
        const QString start =
            "- The Manager will start <br><b>{exe}</b> with the setup file <br><b>{setup}</b>";
        const QString noStart =
            "- The Manager will <b>not</b> automatically start the instance<br><b>{setup}</b>";
        const QString guard =
            "- The Manager will guard the instance and will restart it when there is no activity "
            "detected within <b>%1</b> seconds.";
        const QString noGuard = "- The Manager will not guard the instance.";
        const QString service =
            "- The Manager will start an Ember+ service so that Ember+ Clients can controll this "
            "instance through port <b>%1</b>.";
        const QString noService = "- The Manager will not start an Ember+ service for this instance";
        const QString invalid =
            "<span style=\"color:red;\">- Error: the Ember port has an invalid value <b>%1</b></span>";
        const QString taken =
            "<span style=\"color:red;\">- Error: the Ember port is already taken <b>%1</b></span>";
        QTest::newRow("guarded, port 1000")
            << true << "12" << true << "1000" << QStringList{start, guard.arg(12), service.arg(1000)};
        QTest::newRow("port 999 is invalid")
            << true << "12" << true << "999"
            << QStringList{start, guard.arg(12), service.arg(999), invalid.arg(999)};
        QTest::newRow("port taken by another instance")
            << true << "12" << true << "9100"
            << QStringList{start, guard.arg(12), service.arg(9100), taken.arg(9100)};
        QTest::newRow("no watchdog, no ember")
            << false << "12" << false << "9000" << QStringList{noStart, noGuard, noService};
        QTest::newRow("watchdog with time 0")
            << true << "0" << false << "" << QStringList{noStart, noGuard, noService};
        QTest::newRow("invalid port without ember is not checked")
            << false << "5" << false << "12" << QStringList{noStart, noGuard, noService};
    }
    void overview()
    {
        QFETCH(bool, watchdog);
        QFETCH(QString, time);
        QFETCH(bool, ember);
        QFETCH(QString, port);
        QFETCH(QStringList, lines);
        makeWizard();
        addInstance("Studio9", 9100);
        toNewInstancePage();
        const QString setup = m_dir + "/Studio3.vxup";
        m_wizard->setField("inst.vxup", setup);
        m_wizard->setField("inst.watchdog", watchdog);
        m_wizard->setField("inst.inactivitytime", time);
        m_wizard->setField("inst.ember", ember);
        m_wizard->setField("inst.emberport", port);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(InstancesWizard::ConclusionPageId));
        QCOMPARE(overviewText(), lines.join("<br><br>").replace("{exe}", m_exe).replace("{setup}", setup));
    }

    // Finish creates the instance the overview described and writes it to the settings file.
    void acceptNew()
    {
        makeWizard();
        toNewInstancePage();
        const QString setup = uiWriteFile(m_dir + "/Studio 4.vxup", "");
        QCOMPARE(m_wizard->field("inst.exe").toString(), m_exe);
        m_wizard->setField("inst.vxup", setup);
        m_wizard->setField("inst.inactivitytime", "17");
        m_wizard->setField("inst.emberport", "9104");
        m_wizard->next();
        QVERIFY(overviewText().contains("<b>17</b> seconds"));
        QVERIFY(overviewText().contains("port <b>9104</b>"));
        m_wizard->accept();
        QVERIFY(!m_wizard->isVisible());
        QCOMPARE(m_wizard->startId(), int(InstancesWizard::IntroPageId));

        const uint id = Manager::instanceUIUD(setup);
        const VX_Instance *record = m_manager->instance(id);
        QVERIFY(record);
        QCOMPARE(record->setupPath, setup);
        QCOMPARE(record->exePath, m_exe);
        QCOMPARE(record->emberPort, 9104);
        QCOMPARE(record->inactivityTime, 17);
        QVERIFY(record->flags & InstanceAutoRun);

        QSettings file(m_manager->vxmaFileName(), QSettings::IniFormat);
        QCOMPARE(file.value("Instances/Instance0").toString(), setup);
        QCOMPARE(file.value("Instances/Instance0_exe").toString(), m_exe);
        QCOMPARE(file.value("Instances/Instance0_emberport").toInt(), 9104);
        QCOMPARE(file.value("Instances/Instance0_inactivitytime").toInt(), 17);
    }

    // Opened on one row, the wizard starts at that instance's settings with its files locked, and
    // Finish replaces the record under the same id.
    void acceptChanged()
    {
        makeWizard();
        m_wizard->hide();
        const QString setup = uiWriteFile(m_dir + "/Studio5.vxup", "");
        const uint id = Manager::instanceUIUD(setup);
        m_manager->instanceCreate(id, m_exe, setup, 9105, 20, InstanceAutoRun);
        m_manager->settingsWriteVXMA();

        m_wizard->EditInstance(m_manager->instance(id)->index);
        QVERIFY(m_wizard->isVisible());
        QCOMPARE(m_wizard->currentId(), int(InstancesWizard::InstanceSettingsPageId));
        QCOMPARE(uint(InstancesWizard::m_esnr), id);
        QCOMPARE(m_wizard->field("inst.vxup").toString(), setup);
        QCOMPARE(m_wizard->field("inst.inactivitytime").toString(), QStringLiteral("20"));
        QCOMPARE(m_wizard->field("inst.watchdog").toBool(), true);
        QCOMPARE(m_wizard->field("inst.emberport").toString(), QStringLiteral("9105"));
        const auto buttons = m_wizard->currentPage()->findChildren<QPushButton *>();
        for (QPushButton *button : buttons)
            QVERIFY2(!button->isEnabled(), "the file choosers are locked when editing one instance");

        m_wizard->setField("inst.inactivitytime", "25");
        m_wizard->setField("inst.emberport", "9205");
        m_wizard->next();
        // Its own old port does not count as taken.
        QVERIFY(!overviewText().contains("color:red"));
        m_wizard->accept();

        QCOMPARE(m_manager->instanceMap().size(), 1);
        const VX_Instance *record = m_manager->instance(id);
        QVERIFY(record);
        QCOMPARE(record->emberPort, 9205);
        QCOMPARE(record->inactivityTime, 25);
        QSettings file(m_manager->vxmaFileName(), QSettings::IniFormat);
        QCOMPARE(file.value("Instances/Instance0").toString(), setup);
        QCOMPARE(file.value("Instances/Instance0_emberport").toInt(), 9205);
        QCOMPARE(file.value("Instances/Instance0_inactivitytime").toInt(), 25);
        QVERIFY(!file.contains("Instances/Instance1"));
    }

    void removeFromList()
    {
        makeWizard();
        const uint id = addInstance("Studio6", 9106);
        m_wizard->setField("intro.exepath", m_exe);
        m_wizard->next();
        m_wizard->setField("intro.dochange", true);
        m_wizard->next();
        changePage()->table()->setCurrentCell(0, 0);
        BoxAnswerer boxes(QMessageBox::Yes);
        changePage()->removeInstance();
        QCOMPARE(boxes.titles(), QStringList{"Remove Instance"});
        QCOMPARE(boxes.texts(),
                 QStringList{"Are you sure to stop handling instance:\n" + m_dir + "/Studio6.vxup"});
        QVERIFY(!m_manager->instance(id));
        QCOMPARE(changePage()->table()->rowCount(), 0);
    }

    // An old INI file written on another system uses backslashes; the import turns them into
    // slashes, replaces the Manager's file and loads it.
    void importOldIni()
    {
        makeWizard();
        const QString old = uiWriteFile(m_dir + "/VexaRemoteCollector.ini",
                                        "[Instances]\r\n"
                                        "Instance0=C:\\Vexa\\Studio 8.vxup\r\n"
                                        "Instance0_exe=C:\\Program Files\\Vexa\\VexaStudio.exe\r\n"
                                        "Instance0_emberport=9108\r\n"
                                        "Instance0_inactivitytime=30\r\n"
                                        "[OSC]\r\nReceivePort=0\r\n");
        auto *page = qobject_cast<InstancesPage *>(m_wizard->page(InstancesWizard::InstancesPageId));
        QVERIFY(page->importFrom(old));

        const QString vxma = m_manager->vxmaFileName();
        QCOMPARE(vxma, m_dir + "/VEXA Studio Manager.vxma");
        QVERIFY(!uiReadFile(vxma).contains('\\'));
        const VX_Instance *record = m_manager->instance(Manager::instanceUIUD("C:/Vexa/Studio 8.vxup"));
        QVERIFY(record);
        QCOMPARE(record->setupPath, QStringLiteral("C:/Vexa/Studio 8.vxup"));
        QCOMPARE(record->exePath, QStringLiteral("C:/Program Files/Vexa/VexaStudio.exe"));
        QCOMPARE(record->emberPort, 9108);
        // The files do not exist here, which the record says.
        QVERIFY(record->flags & InstanceFilesMissing);

        QVERIFY(!page->importFrom(m_dir + "/no-such.ini"));
    }
};

QTEST_MAIN(TestInstancesWizard)
#include "tst_instanceswizard.moc"
