#include "platform/qt/QtPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace zelvo::platform {

namespace {

// Written as bytes: QUrl would turn the link's capital letters into small ones, since they stand
// where a host name does.
constexpr const char* UriList = "text/uri-list";

}  // namespace

void QtPasteboard::clearContents() {
    objects_.clear();
    QGuiApplication::clipboard()->clear();
}

void QtPasteboard::writeObjects(const std::vector<PasteboardObject>& objects) {
    objects_.insert(objects_.end(), objects.begin(), objects.end());
    auto* content = new QMimeData;
    for (const auto& object : objects_) {
        if (object.kind == PasteboardObject::Kind::Url) {
            // RFC 2483, section 5: one address a line, lines ended by CRLF.
            content->setData(
                UriList, content->data(UriList) + QByteArray::fromStdString(object.text) + "\r\n");
        } else {
            content->setText(QString::fromStdString(object.text));
        }
    }
    QGuiApplication::clipboard()->setMimeData(content);
}

}  // namespace zelvo::platform
