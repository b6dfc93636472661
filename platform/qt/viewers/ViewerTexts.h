#pragma once

#include <QString>

namespace zelvo::platform {

struct Viewer;
struct ViewerQuestion;

/// What is told of those who want in and who are in, localised. An address is shown as it is, in
/// one line.
QString addressText(const ViewerQuestion& question);
QString encryptionText(const ViewerQuestion& question);
/// The address, and whether they control the computer or watch.
QString viewerText(const Viewer& viewer);
/// Since when, and whether encrypted.
QString viewerDetails(const Viewer& viewer);

/// The text of the key with what stands for "%@".
QString localizedWith(const char* key, const QString& value);

}  // namespace zelvo::platform
