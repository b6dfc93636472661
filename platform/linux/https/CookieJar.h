#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

namespace zelvo::platform {

/// The cookies of a session, in a file for the user alone. One of them may be all that tells a
/// service whose link it is. On the worker's thread; outlives the handles that use it.
class CookieJar {
  public:
    /// Reads what an earlier run has left. An empty name keeps nothing on the disk.
    explicit CookieJar(std::string file);
    CookieJar(const CookieJar&) = delete;
    CookieJar& operator=(const CookieJar&) = delete;

    /// Has the handle send these cookies, and put in what it is given.
    void lend(CURL* handle);
    /// Brings to the disk what has changed. What went wrong; empty when all is there.
    std::string keep();

  private:
    struct FreeShare {
        void operator()(CURLSH* share) const { curl_share_cleanup(share); }
    };
    struct FreeHandle {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    std::string text() const;

    const std::string file_;
    std::unique_ptr<CURLSH, FreeShare> share_;
    /// Looks into the jar; sends nothing.
    std::unique_ptr<CURL, FreeHandle> reader_;
    std::string kept_;
};

}  // namespace zelvo::platform
