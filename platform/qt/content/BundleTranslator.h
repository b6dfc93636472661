#pragma once

#include <QTranslator>

namespace zelvo::platform {

class Bundle;

/// Takes the texts of controls, the toolkit's own included, from the string table. Installs itself
/// into the application, which outlives it.
class BundleTranslator final : public QTranslator {
  public:
    explicit BundleTranslator(const Bundle& bundle);
    ~BundleTranslator() override;

    QString translate(const char* context, const char* sourceText, const char* disambiguation,
                      int n) const override;
    bool isEmpty() const override { return false; }

  private:
    const Bundle& bundle_;
};

}  // namespace zelvo::platform
