#pragma once

namespace zelvo::platform {

/// Usage reports and feedback. Nothing is ever sent without the user's own doing. Main thread only.
class Feedback {
  public:
    virtual ~Feedback() = default;
    virtual void sendTrackingReport() = 0;
    virtual void setupIssuesController(bool reportingUnhandledIssues) = 0;
    virtual void showFeedbackDialog(int mode) = 0;
};

}  // namespace zelvo::platform
