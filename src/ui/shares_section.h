#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>
#include <optional>
#include <vector>

#include "shares/share_control.h"
#include "ui/share_editor_dialog.h"

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace kestrow {

// The menu's "Network Shares": what the section is for, one row per share (its name, where it
// connects, its status, why it is not connected, Connect or Disconnect, and Edit), and "Add
// Server…". It follows the share manager's list and the VPN services, so a row says at once
// that its VPN is off.
class SharesSection : public QWidget {
    Q_OBJECT

public:
    // `vpns` may be null: then no row names a VPN's state.
    SharesSection(ShareControl& control, VPNServicesObservable* vpns, QWidget* parent = nullptr);
    ~SharesSection() override;

    // Opens the share editor for `share`, or for a new share.
    void openEditor(std::optional<SMBShare> share = std::nullopt);

    struct Row {
        QLabel* name;
        QLabel* address;
        QLabel* status;
        // The last error, else the VPN's hint; hidden when there is neither.
        QLabel* detail;
        QPushButton* connect;
        QPushButton* edit;
    };
    // One per share, in the user's order.
    const std::vector<Row>& rows() const { return rows_; }
    QLabel& help() const { return *help_; }
    // Shown only while there are no shares.
    QLabel& emptyList() const { return *empty_; }
    QPushButton& addServer() const { return *add_; }
    // The share editor while it is open.
    ShareEditorDialog* dialog() const { return dialog_; }

private:
    void showShares();

    ShareControl& control_;
    VPNServicesObservable* vpns_;
    QLabel* help_;
    QLabel* empty_;
    QVBoxLayout* rowsLayout_;
    QPushButton* add_;
    std::vector<Row> rows_;
    QPointer<ShareEditorDialog> dialog_;
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
