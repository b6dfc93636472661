#include "platform/qt/sharing/QtPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHash>
#include <QMimeData>

namespace zelvo::platform {

namespace {

constexpr const char* UriList = "text/uri-list";
constexpr const char* PlainText = "text/plain";

/// Gives out its bytes as they are. QMimeData's own store would read addresses into QUrl, which
/// turns a link's capital letters into small ones, since they stand where a host name does.
class ExactContent final : public QMimeData {
  public:
    explicit ExactContent(const std::vector<PasteboardObject>& objects) {
        for (const auto& object : objects) {
            bool isUrl = object.kind == PasteboardObject::Kind::Url;
            const char* format = isUrl ? UriList : PlainText;
            if (!formats_.contains(format))
                formats_.append(format);
            // RFC 2483, section 5: one address a line, each line ended by CRLF.
            bytes_[format] += QByteArray::fromStdString(object.text) + (isUrl ? "\r\n" : "");
        }
    }

    QStringList formats() const override { return formats_; }
    bool hasFormat(const QString& format) const override { return formats_.contains(format); }

  protected:
    QVariant retrieveData(const QString& format, QMetaType type) const override {
        if (!hasFormat(format))
            return {};
        auto bytes = bytes_.value(format);
        return type.id() == QMetaType::QString ? QVariant(QString::fromUtf8(bytes))
                                               : QVariant(bytes);
    }

  private:
    QStringList formats_;
    QHash<QString, QByteArray> bytes_;
};

}  // namespace

void QtPasteboard::clearContents() {
    objects_.clear();
    QGuiApplication::clipboard()->clear();
}

void QtPasteboard::writeObjects(const std::vector<PasteboardObject>& objects) {
    objects_.insert(objects_.end(), objects.begin(), objects.end());
    QGuiApplication::clipboard()->setMimeData(new ExactContent(objects_));
    copied_();
}

}  // namespace zelvo::platform
