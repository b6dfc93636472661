#pragma once

#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "serving/Budgets.h"
#include "serving/ClientAddress.h"

namespace zelvo::serving {

/// The options of a program, on its command line as "--name VALUE" and in a file as "name = VALUE"
/// lines, where "#" begins a comment. What the command line says counts.
class OptionTable {
  public:
    /// Adds an option that is told by `read`, which says whether it can be that; the sentence is
    /// for the help.
    void add(std::string_view name, std::string_view value, std::string_view help,
             std::function<bool(const std::string&)> read);
    void add(std::string_view name, std::string_view value, std::string_view help,
             std::string& place);
    void addPort(std::string_view name, std::string_view help, int& place);
    void addCount(std::string_view name, std::string_view help, std::size_t& place);
    /// "20" at once and then "/0.5" of them in a second; "0" for no limit.
    void addRate(std::string_view name, std::string_view help, Allowances::Rate& place);
    void addAddresses(std::string_view name, std::string_view help, std::set<ClientAddress>& place);
    /// Without a value, in the file also with "yes" or "no".
    void addSwitch(std::string_view name, std::string_view help, bool& place);

    /// Reads the arguments, and the file that "--config FILE" among them names. The reason when one
    /// is unknown, incomplete, given twice or no such value.
    std::string read(std::span<char*> arguments);

    /// A line or two for each option.
    std::string help() const;

  private:
    struct Option {
        std::string name;
        std::string value;
        std::string help;
        std::function<bool(const std::string&)> read;
        bool isGiven = false;
        bool isSwitch = false;
    };

    Option* find(std::string_view name);
    std::string set(Option& option, const std::string& value);
    std::string readFile(const std::string& file);

    std::vector<Option> options_;
};

}  // namespace zelvo::serving
