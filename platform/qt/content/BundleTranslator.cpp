#include "platform/qt/content/BundleTranslator.h"

#include <QCoreApplication>

#include "platform/Bundle.h"

namespace zelvo::platform {

BundleTranslator::BundleTranslator(const Bundle& bundle) : bundle_(bundle) {
    QCoreApplication::installTranslator(this);
}

BundleTranslator::~BundleTranslator() {
    QCoreApplication::removeTranslator(this);
}

QString BundleTranslator::translate(const char*, const char* sourceText, const char*, int) const {
    auto text = bundle_.localizedString(sourceText);
    // Nothing of our own: another translator may know it.
    return text == sourceText ? QString() : QString::fromStdString(text);
}

}  // namespace zelvo::platform
