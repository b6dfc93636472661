#pragma once

#include <cstddef>

struct evbuffer;

namespace zelvo::serving {

/// To be called when the buffer ends with a whole head. Where the client wants to be told to go on
/// with a body of more than `most` bytes, it spoils the expectation, and the library says 417; by
/// itself it would wait for what the client does not send.
void spoilTooGreatExpectation(evbuffer* buffer, std::size_t most);

/// To be called in the same way: the body that follows is none of the request any more, which so is
/// whole. What comes of it nevertheless would be taken for the next request.
void dropBody(evbuffer* buffer);

}  // namespace zelvo::serving
