#include "ui/uihelpers.h"

#include "app/manager.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QLabel>
#include <QLineEdit>
#include <QUrl>
#include <QVBoxLayout>
#include <QWizard>

// Q_INIT_RESOURCE declares the resource's init function where it stands, so this must not be
// inside a namespace.
static void initIconResources()
{
    Q_INIT_RESOURCE(icons);
}

namespace {

// Font, label and radio colour, and dialog background of every wizard.
const char *const WizardStyleSheet = "QWizard, QDialog { background-color: rgba(230, 230, 230, 255); }"
                                     "QWizard * { font-size: 15px; }"
                                     "QLabel, QRadioButton, QCheckBox { color: #4d4e9d; }";

} // namespace

namespace VexaUi {

const char *const HelpInstances = "https://www.calderwick.example/vexa-studio-manager/help/instances";
const char *const HelpSnmp = "https://www.calderwick.example/vexa-studio-manager/help/snmp";
const char *const HelpOsc = "https://www.calderwick.example/vexa-studio-manager/help/osc";
const char *const HelpBlog = "https://www.calderwick.example/blog/streams-and-instances";

void initResources()
{
    initIconResources();
}

QMessageBox::StandardButton showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                    const QString &text, QMessageBox::StandardButtons buttons,
                                    QMessageBox::StandardButton defaultButton)
{
    QMessageBox box(icon, title, text, buttons, parent);
    if (defaultButton != QMessageBox::NoButton)
        box.setDefaultButton(defaultButton);
    return QMessageBox::StandardButton(box.exec());
}

void fillNetworkList(QComboBox *box, const Manager *manager)
{
    box->clear();
    const QVector<NetworkChoice> choices = manager->getNetWorkList();
    for (const NetworkChoice &choice : choices) {
        box->addItem(choice.text, choice.index);
        if (choice.selected)
            box->setCurrentIndex(box->count() - 1);
    }
}

void setWatermark(QWizard *wizard, const QString &picture)
{
    const QPixmap pixmap(picture);
    const QList<int> ids = wizard->pageIds();
    for (int id : ids)
        wizard->page(id)->setPixmap(QWizard::WatermarkPixmap, pixmap);
}

QLabel *overviewLabel(QWizardPage *page)
{
    auto *label = new QLabel(page);
    label->setWordWrap(true);
    label->setTextFormat(Qt::RichText);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(label);
    layout->addStretch();
    return label;
}

void styleWizard(QWizard *wizard, const QString &title, const QString &windowIcon)
{
    initResources();
    wizard->setWindowTitle(title);
    wizard->setWindowIcon(QIcon(windowIcon));
    wizard->setStyleSheet(QString::fromLatin1(WizardStyleSheet));
    wizard->setWizardStyle(QWizard::ModernStyle);
    wizard->setPixmap(QWizard::LogoPixmap, QPixmap(QStringLiteral(":/vexastudio")));
    wizard->setOption(QWizard::HaveHelpButton, true);
    wizard->setOption(QWizard::CancelButtonOnLeft, true);
}

void openHelp(QWidget *parent, const QString &address)
{
    if (QDesktopServices::openUrl(QUrl(address)))
        return;
    showBox(parent, QMessageBox::Information, QObject::tr("Help"),
            QObject::tr("This help is likely not to be of any help.") +
                QStringLiteral("<br><a href=\"%1\">%1</a>").arg(address));
}

QLabel *textLabel(const QString &text, QWidget *parent, bool hint)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    if (hint) {
        QFont font = label->font();
        font.setItalic(true);
        label->setFont(font);
    }
    return label;
}

QLineEdit *addressEdit(QWidget *parent)
{
    auto *edit = new QLineEdit(parent);
    edit->setInputMask(QStringLiteral("000.000.000.000;_"));
    return edit;
}

QHostAddress addressFromText(const QString &text)
{
    const QHostAddress address(text.trimmed());
    return address.protocol() == QAbstractSocket::IPv4Protocol ? address : QHostAddress();
}

bool addressTyped(const QString &text)
{
    QString digits = text;
    digits.remove(QLatin1Char('.'));
    return !digits.trimmed().isEmpty();
}

QString redLine(const QString &text)
{
    return QStringLiteral("<span style=\"color:red;\">%1</span>").arg(text);
}

} // namespace VexaUi
