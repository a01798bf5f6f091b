#include "app/manager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSettings>
#include <QtTest>

// Instance ids, the ".vxma" settings file and the choice of that file, on a real Manager working
// in a private HOME.
class TestRegistry : public QObject
{
    Q_OBJECT

private:
    QString m_dir;

    QString writeFile(const QString &name, const QByteArray &content)
    {
        const QString path = m_dir + "/" + name;
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        file.write(content);
        return path;
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);
    }

    void init()
    {
        m_dir = QDir::homePath() + "/" + QTest::currentTestFunction() + "-" +
                QString::number(QRandomGenerator::global()->generate());
        QDir().mkpath(m_dir);
        QSettings().clear();
    }

    void ids_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("same");
        QTest::newRow("digits gathered wherever they stand") << "/s/Studio 1/A.vxup"
                                                             << "/s/Studio/1A.vxup" << true;
        QTest::newRow("punctuation and case ignored") << "C:/Vexa/Studio-One.vxup"
                                                      << "c:\\vexa\\studio one.VXUP" << true;
        QTest::newRow("different letters") << "/s/StudioA.vxup"
                                           << "/s/StudioB.vxup" << false;
        QTest::newRow("different digits") << "/s/Studio1.vxup"
                                          << "/s/Studio2.vxup" << false;
        QTest::newRow("digit order matters") << "/s/Studio12.vxup"
                                             << "/s/Studio21.vxup" << false;
        QTest::newRow("non-ASCII letters are dropped")
            << QString("/s/Studio") + QChar(0x00DC) << "/s/Studio" << true;
    }
    void ids()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, same);
        QCOMPARE(Manager::instanceUIUD(a) == Manager::instanceUIUD(b), same);
    }

    void sortedHash_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("text");
        QTest::newRow("no digits") << "abc"
                                   << "abc0000000000";
        QTest::newRow("gathered") << "a1b2c3"
                                  << "abc0000000123";
        QTest::newRow("ten digits kept") << "x4294967295"
                                         << "x4294967295";
        QTest::newRow("wraps modulo 2^32") << "x4294967296"
                                           << "x0000000000";
        QTest::newRow("wraps large") << "x99999999999"
                                     << "x1215752191";
        QTest::newRow("non-ASCII decimal digit") << QString("a") + QChar(0x0663) << "a0000000003";
    }
    void sortedHash()
    {
        QFETCH(QString, input);
        QFETCH(QString, text);
        QCOMPARE(Manager::sortedHashValue(input), qHash(text, 0));
    }

    void pathChoice_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("expected");
        QTest::newRow("directory") << ""
                                   << "VEXA Studio Manager.vxma";
        QTest::newRow("ini file beside") << "x.ini"
                                         << "x.vxma";
        QTest::newRow("vxma file") << "site.vxma"
                                   << "site.vxma";
    }
    void pathChoice()
    {
        QFETCH(QString, given);
        QFETCH(QString, expected);
        const QString path = given.isEmpty() ? m_dir : writeFile(given, "");
        Manager manager(nullptr, path);
        QCOMPARE(manager.vxmaFileName(), m_dir + "/" + expected);
        // Choosing the open file again changes nothing.
        manager.path_to_vxma(manager.vxmaFileName());
        QCOMPARE(manager.vxmaFileName(), m_dir + "/" + expected);
        // The application settings remember the file.
        QCOMPARE(QSettings().value("Path_To_VXMA").toString(), m_dir + "/" + expected);
    }

    void loadAndSave()
    {
        const QString exe = writeFile("VexaStudio", "#!/bin/sh\n");
        const QString setupA = writeFile("a1.vxup", "");
        const QString setupB = writeFile("b2.vxup", "");
        const QString missing = m_dir + "/gone3.vxup";
        const QString vxma =
            writeFile("site.vxma", QStringLiteral("[Instances]\n"
                                                  "Instance0=%1\nInstance0_exe=%2\n"
                                                  "Instance0_emberport=9001\nInstance0_inactivitytime=10\n"
                                                  "Instance1=%3\nInstance1_emberport=9002\n"
                                                  "Instance1_inactivitytime=7\nInstance1_autostart=0\n"
                                                  "Instance2=%4\nInstance2_emberport=garbage\n"
                                                  "Instance2_inactivitytime=5\n"
                                                  "Instance3=%4-dup\n"
                                                  "Instance5=%1-never-read\n"
                                                  "[Options]\nEmberNetworkNIC=-1\n")
                                       .arg(setupA, exe, setupB, missing)
                                       .toUtf8());
        {
            Manager manager(nullptr, vxma);
            const auto &map = manager.instanceMap();
            QCOMPARE(map.size(), 4);
            const VX_Instance *a = manager.instance(Manager::instanceUIUD(setupA));
            QVERIFY(a);
            QCOMPARE(a->exePath, exe);
            QCOMPARE(a->emberPort, 9001);
            QCOMPARE(a->inactivityTime, 10);
            QCOMPARE(a->flags, InstanceFromSettings | InstanceAutoRun);
            // No auto-run: never guarded, so its time-out is dropped.
            const VX_Instance *b = manager.instance(Manager::instanceUIUD(setupB));
            QVERIFY(b);
            QCOMPARE(b->inactivityTime, 0);
            QCOMPARE(b->flags & InstanceAutoRun, 0);
            // Missing files are flagged; an unreadable number reads 0.
            const VX_Instance *c = manager.instance(Manager::instanceUIUD(missing));
            QVERIFY(c);
            QCOMPARE(c->flags, InstanceFromSettings | InstanceFilesMissing | InstanceAutoRun);
            QCOMPARE(c->emberPort, 0);
            // Rows are numbered densely in id order.
            QList<int> indexes;
            for (const VX_Instance &r : map)
                indexes << r.index;
            QCOMPARE(indexes, (QList<int>{0, 1, 2, 3}));
            QCOMPARE(manager.pendingStarts().size(), 2);

            manager.settingsWriteVXMA();
        }
        QSettings saved(vxma, QSettings::IniFormat);
        saved.beginGroup("Instances");
        // Only auto-run instances with a time-out are kept, numbered without gaps, no _autostart.
        QCOMPARE(saved.childKeys().filter(QRegularExpression("^Instance\\d+$")).size(), 2);
        QVERIFY(!saved.contains("Instance2"));
        QVERIFY(saved.childKeys().filter("autostart").isEmpty());
        QVERIFY(!saved.contains("Path_To_Exe"));
        saved.endGroup();

        Manager reloaded(nullptr, vxma);
        QCOMPARE(reloaded.instanceMap().size(), 2);
        const VX_Instance *a = reloaded.instance(Manager::instanceUIUD(setupA));
        QVERIFY(a);
        QCOMPARE(a->emberPort, 9001);
        QCOMPARE(a->inactivityTime, 10);
        QVERIFY(a->flags & InstanceAutoRun);
        QVERIFY(reloaded.instance(Manager::instanceUIUD(missing)));
    }

    void receiverKeys_data()
    {
        QTest::addColumn<int>("count");
        QTest::newRow("one receiver: unnumbered key only") << 1;
        QTest::newRow("three receivers: unnumbered, 0, 1") << 3;
    }
    void receiverKeys()
    {
        QFETCH(int, count);
        QByteArray text = "[SNMP]\nTrapSendPort=16299\n[OSC]\nReceivePort=0\n";
        QStringList snmpKeys = {"ManagerIP", "ManagerIP0", "ManagerIP1"};
        QStringList oscKeys = {"TargetIP", "TargetIP0", "TargetIP1"};
        QStringList portKeys = {"TargetPort", "TargetPort0", "TargetPort1"};
        for (int n = 0; n < count; ++n) {
            text += QStringLiteral("[SNMP]\n%1=127.0.0.%2\n").arg(snmpKeys[n]).arg(n + 1).toUtf8();
            text += QStringLiteral("[OSC]\n%1=127.0.0.%2\n%3=%4\n")
                        .arg(oscKeys[n])
                        .arg(n + 1)
                        .arg(portKeys[n])
                        .arg(9000 + n)
                        .toUtf8();
        }
        const QString vxma = writeFile("site.vxma", text);
        {
            Manager manager(nullptr, vxma);
            QCOMPARE(manager.snmpTrapPort(), 16299u);
            manager.settingsWriteVXMA();
        }
        QSettings saved(vxma, QSettings::IniFormat);
        for (int n = 0; n < 3; ++n) {
            QCOMPARE(saved.value("SNMP/" + snmpKeys[n]).toString(),
                     n < count ? QStringLiteral("127.0.0.%1").arg(n + 1) : QString());
            QCOMPARE(saved.value("OSC/" + oscKeys[n]).toString(),
                     n < count ? QStringLiteral("127.0.0.%1").arg(n + 1) : QString());
            QCOMPARE(saved.value("OSC/" + portKeys[n]).toInt(), n < count ? 9000 + n : 0);
        }
        QCOMPARE(saved.value("SNMP/TrapSendPort").toUInt(), 16299u);
        QVERIFY(!saved.contains("SNMP/ReceivePort"));
    }

    void sameIdOnlyUpdates()
    {
        const QString vxma = writeFile("site.vxma", "");
        Manager manager(nullptr, vxma);
        const uint id = Manager::instanceUIUD(m_dir + "/Studio 1/A.vxup");
        QCOMPARE(Manager::instanceUIUD(m_dir + "/Studio/1A.vxup"), id);
        manager.instanceCreate(id, "/x/VexaStudio", m_dir + "/Studio 1/A.vxup", 0, 0, 0);
        manager.instanceCreate(id, "/y/VexaStudio", m_dir + "/Studio/1A.vxup", 9100, 0, 0);
        QCOMPARE(manager.instanceMap().size(), 1);
        QCOMPARE(manager.instance(id)->exePath, QString("/y/VexaStudio"));
        QCOMPARE(manager.instance(id)->emberPort, 9100);
        manager.instanceDelete(id);
        QVERIFY(!manager.instance(id));
    }
};

QTEST_GUILESS_MAIN(TestRegistry)
#include "tst_registry.moc"
