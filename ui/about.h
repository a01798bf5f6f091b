#pragma once

#include <QDialog>

class QLabel;

// The program's About dialog: logo, name, version and maker.
class About : public QDialog
{
    Q_OBJECT
public:
    explicit About(QWidget *parent = nullptr);

    QString versionText() const;

private:
    QLabel *m_version = nullptr;
    QLabel *m_text = nullptr;
};
