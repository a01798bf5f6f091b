#include "peers.h"
#include "uitest.h"

#include "app/manager.h"
#include "snmp/snmp.h"
#include "ui/snmpwizard.h"

#include <QTableWidget>
#include <memory>

// The SNMP wizard on a real Manager and agent: page order, the overview, what Finish and Cancel
// leave in the agent and in the settings file, and a trap reaching a receiver added by the wizard.
class TestSnmpWizard : public QObject
{
    Q_OBJECT

private:
    QString m_dir;
    std::unique_ptr<Manager> m_manager;
    std::unique_ptr<SnmpWizard> m_wizard;

    void makeWizard(const QStringList &receivers = {}, unsigned listen = 0, unsigned trap = 0)
    {
        m_manager.reset(new Manager(nullptr, m_dir));
        if (listen)
            m_manager->snmpSetListenPort(listen);
        if (trap)
            m_manager->snmpSetTrapPort(trap);
        for (QString r : receivers)
            m_manager->snmpSetHost(-1, r);
        m_wizard.reset(new SnmpWizard(nullptr, m_manager.get()));
        m_wizard->restart();
        m_wizard->show();
    }

    QStringList receivers() const
    {
        QStringList list;
        if (const SNMP *agent = m_manager->snmpAgent()) {
            const QList<QHostAddress> hosts = agent->hostList();
            for (const QHostAddress &h : hosts)
                list << h.toString();
        }
        return list;
    }

    QString overviewText() const
    {
        return qobject_cast<SnmpConclusionPage *>(m_wizard->page(SnmpWizard::ConclusionPageId))
            ->overviewText();
    }

    QSettings *file() const { return new QSettings(m_manager->vxmaFileName(), QSettings::IniFormat); }

    SelectSnmpServerPage *selectPage() const
    {
        return qobject_cast<SelectSnmpServerPage *>(m_wizard->page(SnmpWizard::SelectPageId));
    }

private slots:
    void initTestCase() { uiTestIdentity(); }

    void init()
    {
        m_dir = uiTestFolder();
        QSettings().clear();
    }

    void cleanup()
    {
        m_wizard.reset();
        m_manager.reset();
    }

    void pageOrder()
    {
        makeWizard({"127.0.1.1", "127.0.1.2"}, 0, 16200);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::SettingsPageId));
        m_wizard->next();
        // The page shows the agent's ports: off for requests, the trap port as it is.
        QCOMPARE(m_wizard->field("port.dolisten").toBool(), false);
        QCOMPARE(m_wizard->field("port.listenport").toString(), QStringLiteral("161"));
        QCOMPARE(m_wizard->field("port.dosend").toBool(), true);
        QCOMPARE(m_wizard->field("port.trapport").toString(), QStringLiteral("16200"));
        m_wizard->setField("port.dosend", false);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ConclusionPageId));
        m_wizard->setField("port.dosend", true);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::WhatPageId));
        // A checked box needs its port.
        m_wizard->setField("port.trapport", "");
        QVERIFY(!m_wizard->currentPage()->isComplete());
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(SnmpWizard::SettingsPageId));
        m_wizard->setField("port.trapport", "16201");
        m_wizard->next();

        // With receivers present, neither adding nor changing is preselected.
        QCOMPARE(m_wizard->currentId(), int(SnmpWizard::WhatPageId));
        QCOMPARE(m_wizard->field("intro.doadd").toBool(), false);
        QCOMPARE(m_wizard->field("intro.dochange").toBool(), false);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ConclusionPageId));
        SnmpWizard::m_serverix = 5;
        m_wizard->setField("intro.doadd", true);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ChangePageId));
        QCOMPARE(SnmpWizard::m_serverix, -1);
        m_wizard->setField("intro.dochange", true);
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::SelectPageId));
        m_wizard->next();

        // No receiver selected: the wizard may finish here, or go to the overview.
        QTableWidget *table = selectPage()->table();
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(table->item(1, 0)->text(), QStringLiteral("127.0.1.2"));
        QVERIFY(selectPage()->isFinalPage());
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ConclusionPageId));
        table->setCurrentCell(1, 0);
        QVERIFY(!selectPage()->isFinalPage());
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ChangePageId));
        QCOMPARE(SnmpWizard::m_serverix, 1);
        m_wizard->next();
        QCOMPARE(m_wizard->field("server.ip").toString(), QStringLiteral("127.0.1.2"));
        QCOMPARE(m_wizard->nextId(), int(SnmpWizard::ConclusionPageId));
    }

    // With both boxes off, Finish turns requests and traps off; the agent stays for its receivers.
    void bothUnchecked()
    {
        makeWizard({"127.0.1.1"}, 16100, 16200);
        m_wizard->next();
        QCOMPARE(m_wizard->field("port.dolisten").toBool(), true);
        QCOMPARE(m_wizard->field("port.listenport").toString(), QStringLiteral("16100"));
        m_wizard->setField("port.dolisten", false);
        m_wizard->setField("port.dosend", false);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(SnmpWizard::ConclusionPageId));
        QCOMPARE(overviewText(),
                 QStringLiteral("- The Manager will <b>not</b> receive SNMP GET/SET requests<br><br>"
                                "- The Manager will <b>not</b> Send SNMP traps."));
        m_wizard->accept();
        QCOMPARE(m_manager->snmpListenPort(), 0u);
        QCOMPARE(m_manager->snmpTrapPort(), 0u);
        QVERIFY(m_manager->snmpAgent());
        QCOMPARE(receivers(), QStringList{"127.0.1.1"});
        std::unique_ptr<QSettings> settings(file());
        QVERIFY(!settings->contains("SNMP/ReceivePort"));
        QVERIFY(!settings->contains("SNMP/TrapSendPort"));
    }

    // Without traps the receiver pages are skipped, so an address typed earlier changes nothing.
    void noSendNoReceiverChange()
    {
        makeWizard({"127.0.1.1"}, 0, 16200);
        m_wizard->next();
        m_wizard->next();
        m_wizard->setField("intro.doadd", true);
        m_wizard->next();
        m_wizard->setField("server.ip", "127.0.9.9");
        m_wizard->back();
        m_wizard->back();
        m_wizard->setField("port.dosend", false);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(SnmpWizard::ConclusionPageId));
        QVERIFY(overviewText().endsWith("- The Manager will <b>not</b> Send SNMP traps."));
        m_wizard->accept();
        QCOMPARE(receivers(), QStringList{"127.0.1.1"});
        QCOMPARE(m_manager->snmpTrapPort(), 0u);
    }

    // "Remove Server" acts at once: Cancel does not bring the receiver back, and the file agrees.
    void removeThenCancel()
    {
        makeWizard({"127.0.1.1", "127.0.1.2", "127.0.1.3"}, 0, 16200);
        m_wizard->next();
        m_wizard->next();
        m_wizard->setField("intro.dochange", true);
        m_wizard->next();
        selectPage()->table()->setCurrentCell(1, 0);
        selectPage()->removeServer();
        QCOMPARE(receivers(), (QStringList{"127.0.1.1", "127.0.1.3"}));
        QCOMPARE(selectPage()->table()->rowCount(), 2);
        QVERIFY(selectPage()->isFinalPage());
        m_wizard->reject();
        QCOMPARE(receivers(), (QStringList{"127.0.1.1", "127.0.1.3"}));
        std::unique_ptr<QSettings> settings(file());
        QCOMPARE(settings->value("SNMP/ManagerIP").toString(), QStringLiteral("127.0.1.1"));
        QCOMPARE(settings->value("SNMP/ManagerIP0").toString(), QStringLiteral("127.0.1.3"));
        QVERIFY(!settings->contains("SNMP/ManagerIP1"));
    }

    // A receiver added through the wizard gets the traps: snmptrapd sees one after Finish.
    void addReceiverGetsTraps()
    {
        if (!havePeer("snmptrapd"))
            QSKIP("snmptrapd (package snmptrapd) is not installed");
        PeerProcess trapd;
        const unsigned port = startTrapReceiver(trapd, m_dir + "/trapd");
        QVERIFY(port != 0);

        makeWizard();
        const QString setup = uiWriteFile(m_dir + "/Studio1.vxup", "");
        const uint id = Manager::instanceUIUD(setup);
        m_manager->instanceCreate(id, m_dir + "/VexaStudio", setup, 0, 0, 0);

        m_wizard->next();
        m_wizard->setField("port.dosend", true);
        m_wizard->setField("port.trapport", QString::number(port));
        m_wizard->next();
        QCOMPARE(m_wizard->field("intro.doadd").toBool(), true);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(SnmpWizard::ChangePageId));
        m_wizard->setField("server.ip", "127.0.0.1");
        m_wizard->next();
        const QString expected =
            QStringLiteral("- The Manager will <b>not</b> receive SNMP GET/SET requests<br><br>"
                           "- The Manager will now Send SNMP traps to <b>127.0.0.1</b> on port "
                           "<b>%1</b>")
                .arg(port);
        QCOMPARE(overviewText(), expected);
        m_wizard->accept();

        QCOMPARE(receivers(), QStringList{"127.0.0.1"});
        QCOMPARE(m_manager->snmpTrapPort(), port);
        std::unique_ptr<QSettings> settings(file());
        QCOMPARE(settings->value("SNMP/ManagerIP").toString(), QStringLiteral("127.0.0.1"));
        QCOMPARE(settings->value("SNMP/TrapSendPort").toUInt(), port);
        QVERIFY(!settings->contains("SNMP/ReceivePort"));

        QByteArray seen;
        for (int attempt = 0; attempt < 5 && !seen.contains("TRAP, SNMP v1"); ++attempt) {
            m_manager->snmpSendTrap(id);
            seen = trapd.waitFor("TRAP, SNMP v1", 1000);
        }
        QVERIFY2(seen.contains("TRAP, SNMP v1"), seen.constData());
    }
};

QTEST_MAIN(TestSnmpWizard)
#include "tst_snmpwizard.moc"
