// A table of a TOML file, whose every mistake is a UsageError that names the file and the line.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace plendix {

/// Asking for a key makes it known; `finish` refuses the file when it has others. What is not there is
/// nothing, what is there and of the wrong type throws. Copies share what they know.
class ConfigTable {
public:
    /// The file's outermost table. Throws UsageError.
    static ConfigTable read(const std::filesystem::path& file);

    std::optional<int> number(const std::string& key, int least, int most) const;
    std::optional<bool> flag(const std::string& key) const;
    std::optional<std::string> text(const std::string& key) const;
    /// The same, or a number as it would be written.
    std::optional<std::string> quantity(const std::string& key) const;
    std::optional<ConfigTable> table(const std::string& key) const;
    std::vector<ConfigTable> tables(const std::string& key) const;  // [[key]]

    /// Throws when there is a key that nobody asked for.
    void finish() const;

    /// "FILE:LINE: what", by the line of the key, or that of the table where the key is empty or not there;
    /// of a text of several lines by the line of the text, counted from 0, that is to blame.
    [[noreturn]] void refuse(const std::string& key, const std::string& what,
                             std::optional<unsigned> text_line = {}) const;

private:
    struct Content;
    explicit ConfigTable(std::shared_ptr<Content> content) : content_(std::move(content)) {}

    std::shared_ptr<Content> content_;
};

}  // namespace plendix
