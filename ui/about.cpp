#include "ui/about.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPixmap>
#include <QVBoxLayout>

About::About(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("About"));
    setWindowTitle(tr("About"));
    setWindowIcon(QIcon(QStringLiteral(":/logo")));

    auto *icon = new QLabel(this);
    icon->setPixmap(QPixmap(QStringLiteral(":/logo")));
    icon->setAlignment(Qt::AlignTop);

    m_version = new QLabel(QStringLiteral("5.14.0.0"), this);
    m_version->setObjectName(QStringLiteral("version"));
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setTextFormat(Qt::RichText);
    m_text->setOpenExternalLinks(true);
    m_text->setText(tr("<h3>VEXA Studio Manager v%1</h3>"
                       "<p>CalderWick</p>"
                       "<p>Starts and guards VEXA STUDIO instances and makes them available over "
                       "Ember+, OSC and SNMP.</p>")
                        .arg(m_version->text()));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto *texts = new QVBoxLayout;
    texts->addWidget(m_text);
    texts->addWidget(m_version);
    texts->addStretch();
    auto *row = new QHBoxLayout;
    row->addWidget(icon);
    row->addLayout(texts, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(row);
    layout->addWidget(buttons);
}

QString About::versionText() const
{
    return m_version->text();
}
