// The files that tell who may log in. Read once; any thread may ask then.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace plendix {

/// Lines `name:hash`, as 'plendix password' prints them; empty ones and those with '#' are left out.
class PasswordFile {
public:
    /// Throws UsageError at what is wrong in it, and when everybody can read it.
    explicit PasswordFile(const std::string& path);

    /// Takes some 100 ms of a processor, as much for a name that is not there.
    bool right(const std::string& name, const std::string& password) const;

private:
    std::map<std::string, std::string> hashes_;
    std::string nobody_;  // a hash that no password has
};

/// A token of 32 characters or more a line, for programs.
class TokenFile {
public:
    explicit TokenFile(const std::string& path);
    bool has(const std::string& token) const;

private:
    std::vector<std::string> tokens_;
};

/// A new yescrypt hash with a salt of its own. Throws Failure.
std::string password_hash(const std::string& password);

/// Throws UsageError unless a name is one to be put before a colon.
void check_user_name(const std::string& name);

}  // namespace plendix
