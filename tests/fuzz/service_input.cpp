// What strangers send to the sharing service, in its small pieces: a form, a proxy's header.

#include <cstdint>
#include <cstdlib>

#include "platform/linux/base/TextEncoding.h"
#include "service/FormDecoder.h"
#include "service/SharingFields.h"
#include "serving/ProxyHeader.h"

using namespace zelvo;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

void decode(std::string_view body, std::span<const std::string_view> names) {
    const auto form = service::FormDecoder(names).decode(body);
    if (form.status != service::StatusCode::Ok)
        return;
    require(form.fields.size() == names.size());
    for (const auto& [name, value] : form.fields) {
        const bool isLong = name == service::SettingsName;
        require(value.size() <= (isLong ? service::FormDecoder::LongestSettings
                                        : service::FormDecoder::LongestValue));
        require(platform::isUtf8(value) && value.find('\0') == value.npos);
        service::isLegalValue(name, value);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    decode(bytes, service::CreateNames);
    decode(bytes, service::UpdateNames);
    decode(bytes, service::LinkNames);
    using State = serving::ProxyHeader::State;
    const auto header = serving::ProxyHeader::read(bytes);
    if (header.state == State::Complete) {
        require(header.length > 0 && header.length <= size);
        const auto alone = serving::ProxyHeader::read(bytes.substr(0, header.length));
        require(alone.state == State::Complete && alone.client == header.client);
        require(serving::ProxyHeader::read(bytes.substr(0, header.length - 1)).state ==
                State::Incomplete);
    }
    return 0;
}
