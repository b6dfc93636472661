#include "service/FormDecoder.h"

#include <gtest/gtest.h>

#include <array>

namespace zelvo::service {
namespace {

constexpr std::array<std::string_view, 3> Names = {"Name", "Port", "link"};

FormDecoder::Result decode(std::string_view body) {
    return FormDecoder(Names).decode(body);
}

TEST(FormDecoder, KeepsWhatClientsLeaveUnescaped) {
    auto form = decode("Name=Tom%20&%20Ann=1+1&Port=5900&link=");
    EXPECT_EQ(form.status, StatusCode::Ok);
    EXPECT_EQ(form.fields, (Fields{{"Name", "Tom & Ann=1+1"}, {"Port", "5900"}, {"link", ""}}));

    // Only a whole name, as it is spelt, and followed by "=" begins a field.
    form = decode("link=%C3%A9&&names&Nam=e&name=x&Port2=1&Port&Port=1&&Name==&");
    EXPECT_EQ(form.status, StatusCode::Ok);
    EXPECT_EQ(
        form.fields,
        (Fields{{"link", "é&&names&Nam=e&name=x&Port2=1&Port"}, {"Port", "1&"}, {"Name", "=&"}}));
}

TEST(FormDecoder, RefusesWhatIsNotTheForm) {
    const std::pair<std::string, StatusCode> cases[] = {
        {"", StatusCode::MissingField},
        {"Name=&Port=", StatusCode::MissingField},
        {"&", StatusCode::MalformedField},
        {"x=1&Name=&Port=&link=", StatusCode::MalformedField},
        {"Name=a&Port=&link=&Name=b", StatusCode::DuplicateField},
        {std::string("Name=a\0&Port=&link=", 19), StatusCode::MalformedField},
        {"Port=&link=&Name=" + std::string(FormDecoder::LongestValue + 1, 'n'),
         StatusCode::FieldTooLong},
    };
    for (const auto& [body, status] : cases)
        EXPECT_EQ(decode(body).status, status) << body;
    for (std::string value : {"%", "%4", "%g1", "%1g", "%%41", "%00", "%80", "%C3", "%C0%AF",
                              "%ED%A0%80", "%F4%90%80%80", "%E2%82", "\xFF"}) {
        auto form = decode("Port=&link=&Name=" + value);
        EXPECT_EQ(form.status, StatusCode::MalformedField) << value;
        EXPECT_EQ(form.field, "Name") << value;
    }

    // A cut form never passes with a field missing.
    const std::string body = "Name=Tom%20&%20Ann%E2%82%AC&Port=5900&link=abc";
    const auto complete = body.find("link=") + 5;
    for (std::size_t length = 0; length < body.size(); ++length)
        EXPECT_EQ(decode(body.substr(0, length)).status == StatusCode::Ok, length >= complete)
            << length;
}

}  // namespace
}  // namespace zelvo::service
