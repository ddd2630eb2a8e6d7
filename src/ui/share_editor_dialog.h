#pragma once

#include <QDialog>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shares/share_control.h"
#include "shares/share_editor_rules.h"
#include "shares/vpn_service.h"
#include "support/observable.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace kestrow {

using VPNServicesObservable = Observable<std::optional<std::vector<VPNService>>>;

// What removing a share asks first.
struct RemoveShareQuestion {
    std::string title;
    std::string text;
    std::string confirm;
};
RemoveShareQuestion removeShareQuestion(const SMBShare& share);

// Adds a share, or edits or removes one: name, protocol (and for WebDAV its scheme), server,
// port, share, credentials, keep-connected and the VPN it needs, with a live preview of what it
// will connect to. Save is enabled only when the editor's rules allow it. The password lives
// only in its field until Save hands it to the share manager; it is emptied whenever the dialog
// ends, and an empty field on an edit keeps the password already stored.
class ShareEditorDialog : public QDialog {
    Q_OBJECT

public:
    using RemoveConfirmation = std::function<bool(const RemoveShareQuestion&, QWidget* parent)>;

    // `editing`: the record to edit; none for a new share. `vpns` may be null (no VPN monitor).
    ShareEditorDialog(ShareControl& control, VPNServicesObservable* vpns,
                      std::optional<SMBShare> editing = std::nullopt, QWidget* parent = nullptr);
    ~ShareEditorDialog() override;

    // By default a message box.
    void setRemoveConfirmation(RemoveConfirmation confirm) { confirmRemove_ = std::move(confirm); }
    // Shows the dialog in front.
    void present();

    ShareForm form() const;

    QLineEdit& name() const { return *name_; }
    QComboBox& protocol() const { return *protocol_; }
    QComboBox& scheme() const { return *scheme_; }
    QLineEdit& host() const { return *host_; }
    QLineEdit& port() const { return *port_; }
    QLineEdit& shareName() const { return *shareName_; }
    QLineEdit& username() const { return *username_; }
    QLineEdit& password() const { return *password_; }
    QLabel& passwordNote() const { return *passwordNote_; }
    QCheckBox& autoMount() const { return *autoMount_; }
    QComboBox& vpn() const { return *vpn_; }
    QLabel& vpnHelp() const { return *vpnHelp_; }
    QLabel& preview() const { return *preview_; }
    QPushButton& save() const { return *save_; }
    // Hidden for a new share.
    QPushButton& remove() const { return *remove_; }

    void done(int result) override;

private:
    void follow();
    void fillVpnChoices();
    void trySave();
    void tryRemove();

    ShareControl& control_;
    VPNServicesObservable* vpns_;
    std::optional<SMBShare> editing_;
    RemoveConfirmation confirmRemove_;
    QLineEdit* name_;
    QComboBox* protocol_;
    QLabel* schemeLabel_;
    QComboBox* scheme_;
    QLineEdit* host_;
    QLineEdit* port_;
    QLineEdit* shareName_;
    QLineEdit* username_;
    QLineEdit* password_;
    QLabel* passwordNote_;
    QCheckBox* autoMount_;
    QComboBox* vpn_;
    QLabel* vpnHelp_;
    QLabel* preview_;
    QPushButton* save_;
    QPushButton* remove_;
    // What the VPN picker lists after its first entry, "None".
    std::vector<VPNChoice> vpnChoices_;
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
