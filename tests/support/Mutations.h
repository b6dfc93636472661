#pragma once

#include <functional>
#include <random>
#include <string>

namespace zelvo::test {

/// Calls with every beginning of the text, then with `rounds` texts that have some bytes changed,
/// removed or repeated. The same ones in every run.
inline void mutate(const std::string& text, int rounds,
                   const std::function<void(const std::string&)>& call) {
    for (std::size_t length = 0; length < text.size(); ++length)
        call(text.substr(0, length));
    std::mt19937 random(20010101);
    auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    for (int round = 0; round < rounds; ++round) {
        auto changed = text;
        for (auto changes = 1 + below(4); changes > 0 && !changed.empty(); --changes) {
            auto at = below(changed.size());
            switch (below(4)) {
                case 0:
                    changed[at] = static_cast<char>(random());
                    break;
                case 1:
                    changed[at] = text[below(text.size())];
                    break;
                case 2:
                    changed.erase(at, 1 + below(8));
                    break;
                default:
                    changed.insert(at, changed.substr(at, 1 + below(16)));
            }
        }
        call(changed);
    }
}

}  // namespace zelvo::test
