#include "ui/share_editor_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/color_blend.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

// These texts name no backup source, only the platform's things.
const Wording& linuxWords() {
    static const Wording words = Wording::linux(std::nullopt);
    return words;
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    // One line each: a wrapped label in a form gets its height only after the dialog is sized,
    // and the last line would be cut.
    label->setTextFormat(Qt::PlainText);
    QPalette pal = label->palette();
    pal.setColor(QPalette::WindowText,
                 blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), 0.65));
    label->setPalette(pal);
    return label;
}

bool askInMessageBox(const RemoveShareQuestion& question, QWidget* parent) {
    QMessageBox box(QMessageBox::Question, qt(question.title), qt(question.title),
                    QMessageBox::Cancel, parent);
    box.setInformativeText(qt(question.text));
    QPushButton* confirm = box.addButton(qt(question.confirm), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == confirm;
}

}  // namespace

RemoveShareQuestion removeShareQuestion(const SMBShare& share) {
    return {"Remove “" + share.name + "”?",
            "Kestrow stops keeping this share connected and forgets its saved password. Nothing "
            "on the server is touched.",
            "Remove"};
}

ShareEditorDialog::ShareEditorDialog(ShareControl& control, VPNServicesObservable* vpns,
                                     std::optional<SMBShare> editing, QWidget* parent)
    : QDialog(parent),
      control_(control),
      vpns_(vpns),
      editing_(std::move(editing)),
      confirmRemove_(askInMessageBox),
      name_(new QLineEdit(this)),
      protocol_(new QComboBox(this)),
      schemeLabel_(new QLabel(QStringLiteral("Scheme:"), this)),
      scheme_(new QComboBox(this)),
      host_(new QLineEdit(this)),
      port_(new QLineEdit(this)),
      shareName_(new QLineEdit(this)),
      username_(new QLineEdit(this)),
      password_(new QLineEdit(this)),
      passwordNote_(note(shown(linuxWords(), ShareEditorText::kPasswordNote), this)),
      autoMount_(new QCheckBox(shown(linuxWords(), ShareEditorText::kAutoMount), this)),
      vpn_(new QComboBox(this)),
      vpnHelp_(note(shown(linuxWords(), ShareEditorText::kVpnHelp), this)),
      preview_(new QLabel(this)),
      save_(new QPushButton(QStringLiteral("Save"), this)),
      remove_(new QPushButton(QStringLiteral("Remove…"), this)) {
    setObjectName(QStringLiteral("shareEditor"));
    setWindowTitle(editing_ ? QStringLiteral("Edit Server") : QStringLiteral("Add Server"));
    setModal(true);

    name_->setPlaceholderText(shown(linuxWords(), ShareEditorText::kNamePlaceholder));
    host_->setPlaceholderText(shown(linuxWords(), ShareEditorText::kHostPlaceholder));
    username_->setPlaceholderText(shown(linuxWords(), ShareEditorText::kUserPlaceholder));
    port_->setPlaceholderText(QStringLiteral("Default"));
    shareName_->setPlaceholderText(QStringLiteral("Share, or folder path for WebDAV"));
    for (ShareProtocol p : {ShareProtocol::smb, ShareProtocol::webdav})
        protocol_->addItem(qt(std::string(rawText(p))));
    for (WebDAVScheme s : {WebDAVScheme::https, WebDAVScheme::http})
        scheme_->addItem(qt(std::string(rawText(s))));
    password_->setEchoMode(QLineEdit::Password);
    // Nothing the password field holds may leave through the clipboard or an input method.
    password_->setAttribute(Qt::WA_InputMethodEnabled, false);
    password_->setContextMenuPolicy(Qt::NoContextMenu);
    if (editing_) password_->setPlaceholderText(QStringLiteral("Unchanged"));
    preview_->setObjectName(QStringLiteral("preview"));
    preview_->setTextFormat(Qt::PlainText);
    preview_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont mono = preview_->font();
    mono.setStyleHint(QFont::Monospace);
    mono.setFamily(QStringLiteral("monospace"));
    preview_->setFont(mono);

    const ShareForm initial = editing_ ? ShareForm::forShare(*editing_) : ShareForm{};
    name_->setText(qt(initial.name));
    protocol_->setCurrentIndex(initial.protocol == ShareProtocol::smb ? 0 : 1);
    scheme_->setCurrentIndex(initial.scheme == WebDAVScheme::https ? 0 : 1);
    host_->setText(qt(initial.host));
    port_->setText(qt(initial.portText));
    shareName_->setText(qt(initial.shareName));
    username_->setText(qt(initial.username));
    autoMount_->setChecked(initial.autoMount);
    vpnChoices_ = vpnChoices(vpns_ ? vpns_->get() : std::nullopt, initial);
    fillVpnChoices();
    for (std::size_t i = 0; i < vpnChoices_.size(); ++i)
        if (initial.vpnServiceID == vpnChoices_[i].id)
            vpn_->setCurrentIndex(static_cast<int>(i) + 1);

    auto* heading = new QLabel(shown(linuxWords(), ShareEditorText::kCredentialsHeading), this);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);

    auto* fields = new QFormLayout;
    fields->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    fields->addRow(QStringLiteral("Name:"), name_);
    fields->addRow(QStringLiteral("Protocol:"), protocol_);
    fields->addRow(schemeLabel_, scheme_);
    fields->addRow(QStringLiteral("Server:"), host_);
    fields->addRow(QStringLiteral("Port:"), port_);
    fields->addRow(QStringLiteral("Share:"), shareName_);
    fields->addRow(heading);
    fields->addRow(QStringLiteral("User:"), username_);
    fields->addRow(QStringLiteral("Password:"), password_);
    fields->addRow(QString(), passwordNote_);
    fields->addRow(QString(), autoMount_);
    fields->addRow(QStringLiteral("VPN:"), vpn_);
    fields->addRow(QString(), vpnHelp_);
    fields->addRow(QStringLiteral("Connects to:"), preview_);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    buttons->addButton(save_, QDialogButtonBox::AcceptRole);
    save_->setDefault(true);
    buttons->addButton(remove_, QDialogButtonBox::DestructiveRole);
    remove_->setAutoDefault(false);
    remove_->setVisible(editing_.has_value());

    auto* page = new QVBoxLayout(this);
    page->addLayout(fields);
    page->addSpacing(6);
    page->addWidget(buttons);
    setMinimumWidth(std::max(440, fontMetrics().averageCharWidth() * 62));

    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(save_, &QPushButton::clicked, this, [this] { trySave(); });
    connect(remove_, &QPushButton::clicked, this, [this] { tryRemove(); });
    for (QLineEdit* field : {name_, host_, port_, shareName_, username_})
        connect(field, &QLineEdit::textChanged, this, [this] { follow(); });
    for (QComboBox* box : {protocol_, scheme_})
        connect(box, &QComboBox::currentIndexChanged, this, [this] { follow(); });
    if (vpns_) {
        subscriptions_.push_back(
            std::make_shared<Signal<std::optional<std::vector<VPNService>>>::Connection>(
                vpns_->observe([this](const std::optional<std::vector<VPNService>>& services) {
                    // The list changes under the picker; what was picked stays picked.
                    const ShareForm current = this->form();
                    vpnChoices_ = vpnChoices(services, current);
                    fillVpnChoices();
                    for (std::size_t i = 0; i < vpnChoices_.size(); ++i)
                        if (current.vpnServiceID == vpnChoices_[i].id)
                            vpn_->setCurrentIndex(static_cast<int>(i) + 1);
                })));
    }
    follow();
}

ShareEditorDialog::~ShareEditorDialog() {
    password_->clear();
}

void ShareEditorDialog::fillVpnChoices() {
    const QSignalBlocker quiet(vpn_);
    vpn_->clear();
    vpn_->addItem(QStringLiteral("None"));
    for (const VPNChoice& choice : vpnChoices_) vpn_->addItem(qt(choice.label));
}

ShareForm ShareEditorDialog::form() const {
    ShareForm form = editing_ ? ShareForm::forShare(*editing_) : ShareForm{};
    form.name = name_->text().toStdString();
    form.protocol = protocol_->currentIndex() == 1 ? ShareProtocol::webdav : ShareProtocol::smb;
    form.scheme = scheme_->currentIndex() == 1 ? WebDAVScheme::http : WebDAVScheme::https;
    form.host = host_->text().toStdString();
    form.portText = port_->text().toStdString();
    form.shareName = shareName_->text().toStdString();
    form.username = username_->text().toStdString();
    form.autoMount = autoMount_->isChecked();
    const int picked = vpn_->currentIndex() - 1;
    if (picked >= 0 && picked < static_cast<int>(vpnChoices_.size())) {
        form.vpnServiceID = vpnChoices_[static_cast<std::size_t>(picked)].id;
        form.vpnName = vpnChoices_[static_cast<std::size_t>(picked)].name;
    } else {
        form.vpnServiceID.reset();
        form.vpnName.reset();
    }
    return form;
}

void ShareEditorDialog::follow() {
    const ShareForm current = form();
    const bool webdav = current.protocol == ShareProtocol::webdav;
    schemeLabel_->setVisible(webdav);
    scheme_->setVisible(webdav);
    preview_->setText(qt(formPreview(current)));
    save_->setEnabled(canSave(current));
    if (const auto problem = shareFormProblem(current))
        save_->setToolTip(qt(problemSentence(*problem)));
    else
        save_->setToolTip(QString());
}

void ShareEditorDialog::present() {
    show();
    raise();
    activateWindow();
}

void ShareEditorDialog::trySave() {
    const ShareForm current = form();
    if (!canSave(current)) return;
    const SMBShare record = shareRecord(current);
    const std::string password = password_->text().toStdString();
    password_->clear();
    if (editing_)
        control_.update(record, password);
    else
        control_.add(record, password);
    accept();
}

void ShareEditorDialog::tryRemove() {
    if (!editing_ || !confirmRemove_(removeShareQuestion(*editing_), this)) return;
    control_.remove(*editing_);
    accept();
}

void ShareEditorDialog::done(int result) {
    password_->clear();
    QDialog::done(result);
}

}  // namespace kestrow
