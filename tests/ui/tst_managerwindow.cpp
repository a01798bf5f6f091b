#include "uitest.h"

#include "app/manager.h"
#include "ui/managerwindow.h"

#include <QAction>
#include <QMenu>
#include <QScreen>
#include <QTableWidget>
#include <memory>

// The main window on a real Manager: its rows follow the Manager's status signals, its geometry
// is remembered, closing keeps the program running and Quit ends it.
class TestManagerWindow : public QObject
{
    Q_OBJECT

private:
    QString m_dir;
    std::unique_ptr<Manager> m_manager;
    std::unique_ptr<ManagerWindow> m_window;

    QTableWidget *table() const
    {
        return m_window->findChild<QTableWidget *>(QStringLiteral("tableIntances"));
    }

    void makeWindow()
    {
        m_manager.reset(new Manager(nullptr, m_dir));
        m_window.reset(new ManagerWindow(nullptr, m_manager.get()));
    }

    static QString row(const QString &setup, const QString &name, const QString &clients,
                       const QString &station, const QString &state)
    {
        return QStringList{setup, name, clients, station, state}.join(QStringLiteral(":;"));
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
        m_window.reset();
        m_manager.reset();
    }

    void rows_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("rows");
        QTest::newRow("first row") << 0 << 1;
        QTest::newRow("row 5 on an empty table") << 5 << 6;
    }
    void rows()
    {
        QFETCH(int, index);
        QFETCH(int, rows);
        makeWindow();
        emit m_manager->StatusUpdate(index, row("/s/Studio1.vxup", "Desk 1 , port: 9001", "E+(2), O(0), S(0)",
                                                "Station A", "Call in progress"));
        QTableWidget *t = table();
        QCOMPARE(t->rowCount(), rows);
        // Every created row is complete, with its numbered header and its tooltips.
        for (int r = 0; r < rows; ++r) {
            QCOMPARE(t->verticalHeaderItem(r)->text(), r == index ? QString::number(r) : QString());
            QVERIFY(t->item(r, 0));
            QCOMPARE(t->item(r, 1)->toolTip(),
                     QStringLiteral("E+(number of ember+ clients), O(osc address), S(snmp agent id)"));
            QCOMPARE(t->item(r, 2)->toolTip(), QStringLiteral("Station setting"));
            QCOMPARE(t->item(r, 3)->toolTip(), QStringLiteral("Receiving state or settings"));
        }
        QCOMPARE(t->item(index, 0)->text(), QStringLiteral("Desk 1 , port: 9001"));
        QCOMPARE(t->item(index, 0)->toolTip(),
                 QStringLiteral("Instance name, ember+ port number (/s/Studio1.vxup)"));
        QCOMPARE(t->item(index, 1)->text(), QStringLiteral("E+(2), O(0), S(0)"));
        QCOMPARE(t->item(index, 2)->text(), QStringLiteral("Station A"));
        QCOMPARE(t->item(index, 3)->text(), QStringLiteral("Call in progress"));
        QCOMPARE(m_window->windowTitle(),
                 QStringLiteral("VEXA Studio Manager at %1").arg(m_manager->networkAddress().toString()));
        QCOMPARE(m_window->trayIcon()->toolTip(),
                 QStringLiteral("VEXA Studio Manager : %1 Instances").arg(rows));

        // A later update of the same row changes its texts, not the number of rows; a short line
        // leaves the missing fields empty.
        emit m_manager->StatusUpdate(index, QStringLiteral("/s/Studio1.vxup:;Desk 1"));
        QCOMPARE(t->rowCount(), rows);
        QCOMPARE(t->item(index, 0)->text(), QStringLiteral("Desk 1"));
        QCOMPARE(t->item(index, 3)->text(), QString());
    }

    void removal()
    {
        makeWindow();
        for (int i = 0; i < 3; ++i)
            emit m_manager->StatusUpdate(i, row(QStringLiteral("/s/%1.vxup").arg(i),
                                                QStringLiteral("n%1").arg(i), "no ember+", "", "Stand by"));
        emit m_manager->StatusRemove(1);
        QCOMPARE(table()->rowCount(), 2);
        QCOMPARE(table()->item(1, 0)->text(), QStringLiteral("n2"));
        QCOMPARE(m_window->trayIcon()->toolTip(), QStringLiteral("VEXA Studio Manager : 2 Instances"));
        // A row that is not there is ignored.
        emit m_manager->StatusRemove(7);
        QCOMPARE(table()->rowCount(), 2);
    }

    // Remove Instance on a selected row asks first, then removes the instance from the Manager
    // and from its settings file.
    void removeAction_data()
    {
        QTest::addColumn<int>("answer");
        QTest::newRow("no keeps it") << int(QMessageBox::No);
        QTest::newRow("yes removes it") << int(QMessageBox::Yes);
    }
    void removeAction()
    {
        QFETCH(int, answer);
        makeWindow();
        const QString setup = uiWriteFile(m_dir + "/Studio7.vxup", "");
        const uint id = Manager::instanceUIUD(setup);
        // Not auto-run, so no process is started.
        m_manager->instanceCreate(id, m_dir + "/VexaStudio", setup, 0, 0, 0);
        QCOMPARE(table()->rowCount(), 1);
        table()->setCurrentCell(0, 0);

        BoxAnswerer boxes{QMessageBox::StandardButton(answer)};
        m_window->action(ManagerWindow::ActRemove)->trigger();
        QCOMPARE(boxes.titles(), QStringList{"Remove Instance"});
        QVERIFY(boxes.texts().value(0).startsWith("Are you sure to stop handling instance:\n"));
        const bool removed = answer == QMessageBox::Yes;
        QCOMPARE(m_manager->instance(id) == nullptr, removed);
        QCOMPARE(table()->rowCount(), removed ? 0 : 1);
    }

    void geometry_data()
    {
        const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
        QTest::addColumn<QRect>("saved");
        QTest::addColumn<bool>("applied");
        QTest::newRow("inside") << QRect(screen.x() + 10, screen.y() + 20, 300, 200) << true;
        QTest::newRow("partly off to the right")
            << QRect(screen.right() - 100, screen.y() + 20, 300, 200) << false;
        QTest::newRow("above the screen") << QRect(screen.x() + 10, screen.y() - 50, 300, 200) << false;
        QTest::newRow("larger than the screen")
            << QRect(screen.x(), screen.y(), screen.width() + 1, 100) << false;
    }
    void geometry()
    {
        QFETCH(QRect, saved);
        QFETCH(bool, applied);
        {
            QSettings s;
            s.setValue("Pos/x", saved.x());
            s.setValue("Pos/y", saved.y());
            s.setValue("Pos/w", saved.width());
            s.setValue("Pos/h", saved.height());
            s.setValue("Pos/NameColumnWidth", 211);
            s.setValue("Pos/ClientColumnWidth", 97);
        }
        makeWindow();
        QCOMPARE(m_window->geometry() == saved, applied);
        QCOMPARE(table()->columnWidth(0), 211);
        QCOMPARE(table()->columnWidth(1), 97);

        // What the window writes back is what it reads next time.
        table()->setColumnWidth(2, 123);
        m_window->settingsWriteINI();
        const QRect written = m_window->geometry();
        cleanup();
        makeWindow();
        QCOMPARE(m_window->geometry(), written);
        QCOMPARE(table()->columnWidth(2), 123);
    }

    void logToFileFollowsSettings()
    {
        QSettings().setValue("LoggingLevel", 2);
        makeWindow();
        QAction *log = m_window->action(ManagerWindow::ActLogToFile);
        QVERIFY(log->isChecked());
        log->trigger();
        QCOMPARE(QSettings().value("LoggingLevel").toInt(), 0);
    }

    // Closing the window leaves the program running (with a box saying so); Quit ends the event
    // loop without a box. Both run inside the application's own event loop.
    void closeThenQuit()
    {
        makeWindow();
        BoxAnswerer boxes;
        bool runningAfterClose = false;
        bool reachable = false;
        QTimer guard;
        guard.setSingleShot(true);
        connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(99); });
        guard.start(10000);

        QTimer::singleShot(50, this, [this] { m_window->close(); });
        QTimer::singleShot(300, this, [&] {
            runningAfterClose = true;
            // With a tray the window hides; without one it must stay reachable on the task bar.
            reachable = m_window->trayAvailable() ? !m_window->isVisible()
                                                  : (m_window->isVisible() && m_window->isMinimized());
            boxes.clear();
            m_window->action(ManagerWindow::ActQuit)->trigger();
        });
        const int result = QApplication::exec();
        QCOMPARE(result, 0);
        QVERIFY(runningAfterClose);
        QVERIFY(reachable);
        QVERIFY(boxes.titles().isEmpty());
    }

    void closeShowsTheBox()
    {
        makeWindow();
        QTRY_VERIFY(m_window->isVisible());
        BoxAnswerer boxes;
        m_window->close();
        QCOMPARE(boxes.titles(), QStringList{"Hiding Window"});
        QCOMPARE(
            boxes.texts(),
            QStringList{"The Application keeps Running in the background<br>Acces through the Taskbar icon"});
        // Open from the tray brings it back.
        m_window->action(ManagerWindow::ActOpen)->trigger();
        QVERIFY(m_window->isVisible());
        QVERIFY(!m_window->isMinimized());
        QVERIFY(!m_window->action(ManagerWindow::ActHide)->isChecked());
    }
};

QTEST_MAIN(TestManagerWindow)
#include "tst_managerwindow.moc"
