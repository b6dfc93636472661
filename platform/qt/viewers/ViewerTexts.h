#pragma once

#include <QString>

namespace zelvo::platform {

struct Viewer;
struct ViewerQuestion;

/// What is told of those who want in and who are in, localised. An address is shown as it is, in
/// one line.
QString titleText(const ViewerQuestion& question);
QString addressText(const ViewerQuestion& question);
/// Whether they have proven to have the link, and whose word the name is.
QString proofText(const ViewerQuestion& question);
QString encryptionText(const ViewerQuestion& question);
/// The name that they gave, or else the address.
QString whoText(const Viewer& viewer);
/// Who, and whether they control the computer or watch.
QString viewerText(const Viewer& viewer);
/// Of somebody who is away.
QString awayText(const Viewer& viewer);
/// Since when, and how the connection is protected.
QString viewerDetails(const Viewer& viewer);

/// The text of the key with what stands for "%@".
QString localizedWith(const char* key, const QString& value);

}  // namespace zelvo::platform
