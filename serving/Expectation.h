#pragma once

#include <cstddef>

struct evbuffer;

namespace zelvo::serving {

/// To be called when the buffer ends with a whole head. Where the client wants to be told to go on
/// with a body of more than `most` bytes, it spoils the expectation, and the library says 417; by
/// itself it would wait for what the client does not send.
void spoilTooGreatExpectation(evbuffer* buffer, std::size_t most);

}  // namespace zelvo::serving
