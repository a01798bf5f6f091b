#pragma once

#include <QHostAddress>
#include <QMessageBox>
#include <QString>

class QComboBox;
class QLabel;
class QLineEdit;
class QWizard;
class QWizardPage;
class Manager;

// Small pieces shared by the window and the wizards.
namespace VexaUi {

// Makes the icons of the resource file known; the library is static, so its resource object is
// only linked in when something calls this.
void initResources();

// Shows a message box and waits for the answer. Every box of the program goes through here so
// that all of them are modal dialogs a test can find (QApplication::activeModalWidget) and answer.
QMessageBox::StandardButton showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                    const QString &text,
                                    QMessageBox::StandardButtons buttons = QMessageBox::Ok,
                                    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton);

// Fills a combo box with the network interfaces the manager offers, each item's data the
// interface index (-1 for "Default"), and selects the current choice.
void fillNetworkList(QComboBox *box, const Manager *manager);

// The look shared by the three wizards: style sheet, logo, modern style, help and cancel buttons.
void styleWizard(QWizard *wizard, const QString &title, const QString &windowIcon);

// Shows `picture` as the watermark of every page the wizard has.
void setWatermark(QWizard *wizard, const QString &picture);

// The word-wrapped rich-text label that is the whole content of an overview page.
QLabel *overviewLabel(QWizardPage *page);

// Opens a help page in the desktop browser; when that is not possible, tells the user where it is.
void openHelp(QWidget *parent, const QString &address);

// Wraps an error line of an overview so that it stands out in red.
QString redLine(const QString &text);

// A word-wrapped label; `hint` sets it in italics.
QLabel *textLabel(const QString &text, QWidget *parent, bool hint = false);

// A line edit for an IPv4 address with the input mask of the wizards ("000.000.000.000;_").
QLineEdit *addressEdit(QWidget *parent);
// The address in the text of such an edit; a null address unless it is a complete IPv4 address.
QHostAddress addressFromText(const QString &text);
// Whether anything was typed into an address edit (an untouched one reads "...").
bool addressTyped(const QString &text);

// The page shown by the help buttons of the wizards.
extern const char *const HelpInstances;
extern const char *const HelpSnmp;
extern const char *const HelpOsc;
extern const char *const HelpBlog;

} // namespace VexaUi
