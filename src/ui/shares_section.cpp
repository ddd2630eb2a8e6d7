#include "ui/shares_section.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "shares/share_url.h"
#include "shares/vpn_presentation.h"
#include "ui/color_blend.h"
#include "ui/error_label.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

const Wording& linuxWords() {
    static const Wording words = Wording::linux(std::nullopt);
    return words;
}

QLabel* label(QWidget* parent, double share = 1.0) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    if (share < 1.0) {
        QPalette pal = label->palette();
        pal.setColor(QPalette::WindowText,
                     blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), share));
        label->setPalette(pal);
    }
    return label;
}

QPushButton* smallButton(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setAutoDefault(false);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

std::string address(const SMBShare& share) {
    return displayScheme(share) + "://" + displayHost(share) + "/" + share.shareName;
}

}  // namespace

SharesSection::SharesSection(ShareControl& control, VPNServicesObservable* vpns, QWidget* parent)
    : QWidget(parent),
      control_(control),
      vpns_(vpns),
      help_(label(this, 0.7)),
      empty_(label(this, 0.7)),
      rowsLayout_(new QVBoxLayout),
      add_(smallButton(QStringLiteral("Add Server…"), this)) {
    setObjectName(QStringLiteral("sharesSection"));
    help_->setText(shown(linuxWords(), ShareEditorText::kSectionHelp));
    help_->setWordWrap(true);
    empty_->setText(shown(linuxWords(), ShareEditorText::kEmptyList));
    empty_->setWordWrap(true);

    rowsLayout_->setContentsMargins(0, 0, 0, 0);
    rowsLayout_->setSpacing(6);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 2, 10, 2);
    column->setSpacing(5);
    column->addWidget(help_);
    column->addWidget(empty_);
    column->addLayout(rowsLayout_);
    column->addWidget(add_, 0, Qt::AlignLeft);

    connect(add_, &QPushButton::clicked, this, [this] { openEditor(); });
    subscriptions_.push_back(std::make_shared<Signal<std::vector<SMBShare>>::Connection>(
        control_.shares().observe([this](const std::vector<SMBShare>&) { showShares(); })));
    if (vpns_) {
        subscriptions_.push_back(
            std::make_shared<Signal<std::optional<std::vector<VPNService>>>::Connection>(
                vpns_->observe(
                    [this](const std::optional<std::vector<VPNService>>&) { showShares(); })));
    }
    showShares();
}

SharesSection::~SharesSection() {
    // The editor is a window of its own (the menu hides as soon as it loses focus); it goes with
    // the section.
    delete dialog_.data();
}

void SharesSection::showShares() {
    // Old rows go later: this may run inside a click of one of their buttons.
    for (const Row& row : rows_) {
        row.name->parentWidget()->hide();
        row.name->parentWidget()->deleteLater();
    }
    rows_.clear();
    const std::vector<SMBShare>& shares = control_.shares().get();
    const std::optional<std::vector<VPNService>> none;
    const auto& services = vpns_ ? vpns_->get() : none;
    empty_->setVisible(shares.empty());
    for (const SMBShare& share : shares) {
        auto* box = new QWidget(this);
        Row row{label(box), label(box, 0.65), label(box, 0.65), label(box), nullptr, nullptr};
        QFont bold = row.name->font();
        bold.setBold(true);
        row.name->setFont(bold);
        row.name->setText(qt(share.name));
        row.address->setText(qt(address(share)));
        row.status->setText(qt(std::string(rawText(share.status))));
        const bool mounted = share.status == MountStatus::mounted;
        if (share.lastError) {
            makeErrorLabel(row.detail);
            row.detail->setText(shown(linuxWords(), *share.lastError));
            row.detail->show();
        } else if (const auto hint = VPNPresentation::hint(mounted, share.vpnServiceID,
                                                           share.vpnName, services)) {
            row.detail->setWordWrap(true);
            row.detail->setText(qt(*hint));
        } else {
            row.detail->hide();
        }
        const bool busy = mounted || share.status == MountStatus::connecting;
        row.connect =
            smallButton(busy ? QStringLiteral("Disconnect") : QStringLiteral("Connect"), box);
        row.edit = smallButton(QStringLiteral("Edit…"), box);

        auto* top = new QHBoxLayout;
        top->addWidget(row.name, 1);
        top->addWidget(row.status);
        auto* bottom = new QHBoxLayout;
        bottom->addWidget(row.address, 1);
        bottom->addWidget(row.connect);
        bottom->addWidget(row.edit);
        auto* layout = new QVBoxLayout(box);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(2);
        layout->addLayout(top);
        layout->addLayout(bottom);
        layout->addWidget(row.detail);
        rowsLayout_->addWidget(box);

        connect(row.connect, &QPushButton::clicked, this, [this, share, busy] {
            if (busy)
                control_.unmount(share);
            else
                control_.mount(share);
        });
        connect(row.edit, &QPushButton::clicked, this, [this, share] { openEditor(share); });
        rows_.push_back(row);
    }
}

void SharesSection::openEditor(std::optional<SMBShare> share) {
    // An editor already open comes to the front; one that has just closed (and waits to be
    // deleted) is not reused.
    if (dialog_ && dialog_->isVisible()) {
        dialog_->present();
        return;
    }
    dialog_ = new ShareEditorDialog(control_, vpns_, std::move(share));
    dialog_->setAttribute(Qt::WA_DeleteOnClose);
    dialog_->present();
}

}  // namespace kestrow
