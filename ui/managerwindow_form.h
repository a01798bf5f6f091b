#pragma once

#include <QHeaderView>
#include <QMainWindow>
#include <QStatusBar>
#include <QTableWidget>
#include <QVBoxLayout>
#include <QWidget>

// The form of the main window: the instance table and the status bar. The menus, actions and
// tray belong to the window itself.
class Ui_ManagerWindow
{
public:
    QWidget *centralWidget = nullptr;
    QVBoxLayout *verticalLayout = nullptr;
    QTableWidget *tableIntances = nullptr;
    QStatusBar *statusBar = nullptr;

    void setupUi(QMainWindow *window)
    {
        window->setObjectName(QStringLiteral("ManagerWindow"));
        window->setWindowIcon(QIcon(QStringLiteral(":/logo")));
        window->resize(980, 300);

        centralWidget = new QWidget(window);
        centralWidget->setObjectName(QStringLiteral("centralWidget"));
        verticalLayout = new QVBoxLayout(centralWidget);
        verticalLayout->setObjectName(QStringLiteral("verticalLayout"));
        verticalLayout->setSpacing(6);
        verticalLayout->setContentsMargins(11, 11, 11, 11);

        tableIntances = new QTableWidget(centralWidget);
        tableIntances->setObjectName(QStringLiteral("tableIntances"));
        tableIntances->setColumnCount(4);
        tableIntances->setHorizontalHeaderLabels({QMainWindow::tr("Instance"), QMainWindow::tr("Clients"),
                                                  QMainWindow::tr("Send Status"),
                                                  QMainWindow::tr("Receive Status")});
        tableIntances->setEditTriggers(QAbstractItemView::NoEditTriggers);
        tableIntances->setSelectionBehavior(QAbstractItemView::SelectRows);
        tableIntances->setSelectionMode(QAbstractItemView::SingleSelection);
        tableIntances->horizontalHeader()->setStretchLastSection(true);
        tableIntances->setColumnWidth(0, 240);
        tableIntances->setColumnWidth(1, 150);
        tableIntances->setColumnWidth(2, 230);
        tableIntances->setToolTip(QMainWindow::tr("Status information"));
        verticalLayout->addWidget(tableIntances);
        window->setCentralWidget(centralWidget);

        statusBar = new QStatusBar(window);
        statusBar->setObjectName(QStringLiteral("statusBar"));
        window->setStatusBar(statusBar);
    }
};
