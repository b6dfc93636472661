#pragma once

namespace zelvo::service {

/// The member "StatusCode" of every reply. The numbers are part of the protocol: never reuse one.
enum class StatusCode : int {
    Ok = 0,                ///< Done.
    MissingField = 1,      ///< A field of the endpoint is not in the form.
    MalformedField = 2,    ///< Bad percent escape, not UTF-8, NUL, or not a value of this field.
    DuplicateField = 3,    ///< A field is in the form twice.
    FieldTooLong = 4,      ///< A value has more than 4 KiB, "HotKeys" more than 64.
    UnknownLink = 5,       ///< Nothing is registered under that link, or it is somebody else's.
    StoreUnavailable = 6,  ///< The database could not be read or written; nothing has changed.
    MethodNotAllowed = 7,  ///< Not a POST.
    UnknownPath = 8,       ///< No endpoint of this name.
    // 9 was a body of more than 4 MiB, which is refused before anything is read of it.
    NotAForm = 10,         ///< The body is not declared as application/x-www-form-urlencoded.
    BadRequest = 11,       ///< Not a readable HTTP request, or its body broke off.
    InternalError = 12,    ///< The service itself failed.
    TooManyRequests = 13,  ///< This client or owner asks too often; later it may.
    NoRelay = 14,          ///< The service has no relay to send anybody to.
};

/// One English sentence for people who read a reply.
constexpr const char* describe(StatusCode code) {
    switch (code) {
        case StatusCode::Ok:
            return "Done.";
        case StatusCode::MissingField:
            return "A field is missing.";
        case StatusCode::MalformedField:
            return "A field is malformed.";
        case StatusCode::DuplicateField:
            return "A field is given twice.";
        case StatusCode::FieldTooLong:
            return "A field is too long.";
        case StatusCode::UnknownLink:
            return "The link is not known.";
        case StatusCode::StoreUnavailable:
            return "The database is not available.";
        case StatusCode::MethodNotAllowed:
            return "Only POST is answered.";
        case StatusCode::UnknownPath:
            return "There is no such endpoint.";
        case StatusCode::NotAForm:
            return "The request is not a form.";
        case StatusCode::BadRequest:
            return "The request is not readable.";
        case StatusCode::TooManyRequests:
            return "Too many requests; try again later.";
        case StatusCode::NoRelay:
            return "There is no relay.";
        case StatusCode::InternalError:
            break;
    }
    return "The service failed.";
}

}  // namespace zelvo::service
