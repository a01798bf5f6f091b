#include "peers.h"
#include "uitest.h"

#include "app/manager.h"
#include "osc/osc.h"
#include "ui/oscwizard.h"

#include <QTableWidget>
#include <memory>

// The OSC wizard on a real Manager and gateway: page order, the overview with its red lines, what
// Finish and Cancel leave in the gateway and the settings file, and an OSC message reaching a
// target added by the wizard.
class TestOscWizard : public QObject
{
    Q_OBJECT

private:
    QString m_dir;
    std::unique_ptr<Manager> m_manager;
    std::unique_ptr<OscWizard> m_wizard;

    void makeWizard(const QList<QPair<QString, unsigned>> &targets = {}, unsigned inPort = 0)
    {
        m_manager.reset(new Manager(nullptr, m_dir));
        if (inPort)
            m_manager->oscSetInPort(inPort);
        for (auto t : targets)
            m_manager->oscSetHost(-1, t.first, t.second);
        m_wizard.reset(new OscWizard(nullptr, m_manager.get()));
        m_wizard->restart();
        m_wizard->show();
    }

    QStringList targets() const
    {
        QStringList list;
        if (const OSC *gateway = m_manager->oscGateway()) {
            for (int i = 0; i < gateway->targets().size(); ++i)
                list << QStringLiteral("%1:%2")
                            .arg(gateway->targets().at(i).toString())
                            .arg(gateway->targetPorts().value(i));
        }
        return list;
    }

    QString overviewText() const
    {
        return qobject_cast<OscConclusionPage *>(m_wizard->page(OscWizard::ConclusionPageId))->overviewText();
    }

    SelectOscTargetPage *selectPage() const
    {
        return qobject_cast<SelectOscTargetPage *>(m_wizard->page(OscWizard::SelectPageId));
    }

    // Through the settings page to the target list.
    void toTargetList()
    {
        m_wizard->next();
        m_wizard->setField("settings.dochange", true);
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(OscWizard::SelectPageId));
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
        makeWizard({{"127.0.2.1", 9001}, {"127.0.2.2", 9002}}, 17770);
        QCOMPARE(m_wizard->nextId(), int(OscWizard::SettingsPageId));
        m_wizard->next();
        QCOMPARE(m_wizard->field("settings.receiving").toBool(), true);
        QCOMPARE(m_wizard->field("settings.inport").toString(), QStringLiteral("17770"));
        // Add and change start unchecked.
        QCOMPARE(m_wizard->field("settings.doadd").toBool(), false);
        QCOMPARE(m_wizard->field("settings.dochange").toBool(), false);
        QCOMPARE(m_wizard->nextId(), int(OscWizard::ConclusionPageId));
        OscWizard::m_targetix = 5;
        m_wizard->setField("settings.doadd", true);
        QCOMPARE(m_wizard->nextId(), int(OscWizard::ChangePageId));
        QCOMPARE(OscWizard::m_targetix, -1);
        m_wizard->setField("settings.dochange", true);
        QCOMPARE(m_wizard->nextId(), int(OscWizard::SelectPageId));
        // Receiving needs a port.
        m_wizard->setField("settings.inport", "");
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(OscWizard::SettingsPageId));
        m_wizard->setField("settings.inport", "17770");
        m_wizard->next();

        QTableWidget *table = selectPage()->table();
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(table->item(1, 0)->text(), QStringLiteral("127.0.2.2 port: 9002"));
        QCOMPARE(m_wizard->nextId(), int(OscWizard::ConclusionPageId));
        table->setCurrentCell(1, 0);
        QCOMPARE(m_wizard->nextId(), int(OscWizard::ChangePageId));
        QCOMPARE(OscWizard::m_targetix, 1);
        m_wizard->next();
        QCOMPARE(m_wizard->field("server.ip").toString(), QStringLiteral("127.0.2.2"));
        QCOMPARE(m_wizard->field("server.port").toString(), QStringLiteral("9002"));
        // Both the address and the port are needed.
        m_wizard->setField("server.port", "");
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(OscWizard::ChangePageId));
        m_wizard->setField("server.port", "9102");
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(OscWizard::ConclusionPageId));
        QCOMPARE(m_wizard->nextId(), -1);

        // Finish changes the selected target in place.
        m_wizard->accept();
        QCOMPARE(targets(), (QStringList{"127.0.2.1:9001", "127.0.2.2:9102"}));
    }

    // The lower bound of 1000 is shown in red but not enforced.
    void overview_data()
    {
        QTest::addColumn<bool>("receiving");
        QTest::addColumn<QString>("inPort");
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("text");
        QTest::addColumn<unsigned>("appliedIn");
        QTest::addColumn<QStringList>("appliedTargets");
        QTest::newRow("receive port 500") << true << "500"
                                          << ""
                                          << ""
                                          << "<span style=\"color:red;\">- Error: the Receiving port has an "
                                             "invalid value <b>500</b></span><br><br>"
                                             "- There are no new OSC Targets<br>"
                                          << 500u << QStringList{};
        QTest::newRow("receive 7770, target port 999")
            << true << "7770"
            << "127.0.3.3"
            << "999"
            << "- The Manager will Receive OSC on <b>7770</b>.<br><br><br>"
               "<span style=\"color:red;\">- Error: the Target port has an invalid value <b>999</b></span>"
            << 7770u << QStringList{"127.0.3.3:999"};
        QTest::newRow("not receiving, new target")
            << false << "7770"
            << "127.0.3.4"
            << "1000"
            << "- The Manager will not be set as OSC Receiver<br><br><br>"
               "- It will send OSC on Target IP <b>127.0.3.4</b> on Port <b>1000</b>"
            << 0u << QStringList{"127.0.3.4:1000"};
    }
    void overview()
    {
        QFETCH(bool, receiving);
        QFETCH(QString, inPort);
        QFETCH(QString, ip);
        QFETCH(QString, port);
        QFETCH(QString, text);
        QFETCH(unsigned, appliedIn);
        QFETCH(QStringList, appliedTargets);
        makeWizard();
        m_wizard->next();
        m_wizard->setField("settings.receiving", receiving);
        m_wizard->setField("settings.inport", inPort);
        if (!ip.isEmpty()) {
            m_wizard->setField("settings.doadd", true);
            m_wizard->next();
            m_wizard->setField("server.ip", ip);
            m_wizard->setField("server.port", port);
        }
        m_wizard->next();
        QCOMPARE(m_wizard->currentId(), int(OscWizard::ConclusionPageId));
        QCOMPARE(overviewText(), text);
        m_wizard->accept();
        QVERIFY(m_manager->oscGateway());
        QCOMPARE(m_manager->oscGateway()->inPort(), appliedIn);
        QCOMPARE(targets(), appliedTargets);

        std::unique_ptr<QSettings> file(new QSettings(m_manager->vxmaFileName(), QSettings::IniFormat));
        QCOMPARE(file->value("OSC/ReceivePort", 0u).toUInt(), appliedIn);
        QCOMPARE(file->value("OSC/TargetIP").toString(), ip);
        QCOMPARE(file->value("OSC/TargetPort", 0u).toUInt(), port.toUInt());
    }

    // Finishing without receiving and without a target change still makes the gateway, port 0.
    void finishWithNothing()
    {
        makeWizard();
        QVERIFY(!m_manager->oscGateway());
        m_wizard->next();
        m_wizard->setField("settings.receiving", false);
        m_wizard->next();
        QCOMPARE(overviewText(), QStringLiteral("- The Manager will not be set as OSC Receiver<br><br><br>"
                                                "- There are no new OSC Targets<br>"));
        m_wizard->accept();
        QVERIFY(m_manager->oscGateway());
        QCOMPARE(m_manager->oscGateway()->inPort(), 0u);
        QVERIFY(!m_manager->oscGateway()->receiving());
    }

    // "Remove Target" acts at once; Cancel keeps the removal, and the last one ends the gateway.
    void removeTargets()
    {
        makeWizard({{"127.0.2.1", 9001}, {"127.0.2.2", 9002}}, 17771);
        toTargetList();
        selectPage()->table()->setCurrentCell(0, 0);
        selectPage()->removeTarget();
        QCOMPARE(targets(), QStringList{"127.0.2.2:9002"});
        QCOMPARE(selectPage()->table()->rowCount(), 1);
        m_wizard->reject();
        QCOMPARE(targets(), QStringList{"127.0.2.2:9002"});
        std::unique_ptr<QSettings> file(new QSettings(m_manager->vxmaFileName(), QSettings::IniFormat));
        QCOMPARE(file->value("OSC/TargetIP").toString(), QStringLiteral("127.0.2.2"));
        QVERIFY(!file->contains("OSC/TargetIP0"));

        m_wizard->restart();
        toTargetList();
        selectPage()->table()->setCurrentCell(0, 0);
        selectPage()->removeTarget();
        QVERIFY(!m_manager->oscGateway());
        QCOMPARE(selectPage()->table()->rowCount(), 0);
    }

    // A target added through the wizard receives the value changes: oscdump prints one.
    void addTargetGetsMessages()
    {
        if (!havePeer("oscdump"))
            QSKIP("oscdump (package liblo-tools) is not installed");
        PeerProcess dump;
        const unsigned port = startOscReceiver(dump);
        QVERIFY(port != 0);

        makeWizard();
        m_wizard->next();
        m_wizard->setField("settings.doadd", true);
        m_wizard->next();
        m_wizard->setField("server.ip", "127.0.0.1");
        m_wizard->setField("server.port", QString::number(port));
        m_wizard->next();
        QCOMPARE(overviewText(),
                 QStringLiteral("- The Manager will not be set as OSC Receiver<br><br><br>"
                                "- It will send OSC on Target IP <b>127.0.0.1</b> on Port <b>%1</b>")
                     .arg(port));
        m_wizard->accept();
        QCOMPARE(targets(), QStringList{QStringLiteral("127.0.0.1:%1").arg(port)});

        // One published value, sent the way every instance value change is sent.
        OSC *gateway = m_manager->oscGateway();
        QVERIFY(gateway);
        OSC::__PARAM probe;
        probe.id = 0x7f0000;
        probe.name = QStringLiteral("/probe");
        probe.kind = 'P';
        probe.tag = 'i';
        gateway->parameterAdd(probe);
        QByteArray seen;
        for (int attempt = 0; attempt < 5 && !seen.contains("probe"); ++attempt) {
            gateway->oscSendTo(0, int(probe.id), 4242, nullptr);
            seen = dump.waitFor("probe", 1000);
        }
        QVERIFY2(seen.contains("probe") && seen.contains("4242"), seen.constData());
    }
};

QTEST_MAIN(TestOscWizard)
#include "tst_oscwizard.moc"
