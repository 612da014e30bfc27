#include "gateway/doorkeeper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "gateway/address.h"
#include "gateway/control.h"
#include "platform/file_descriptor.h"

namespace gateway {
namespace {

// 128 bits as hexadecimal digits.
constexpr std::size_t shortest_token = 32;
constexpr std::size_t longest_token = 256;

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::ranges::find(list, item) != list.end();
}

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

std::string own_name() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return lower(name);
}

}  // namespace

Doorkeeper::Doorkeeper(Rules rules) : rules_{std::move(rules)} {
    for (std::string& host : rules_.hosts) {
        host = lower(host);
    }
    if (const std::string name = own_name(); !name.empty()) {
        rules_.hosts.push_back(name);
        rules_.hosts.push_back(name + ".local");
    }
    rules_.hosts.emplace_back("localhost");
}

// Another site whose name was made to lead here still says its own name (RFC 9110, 7.2), and an address in
// digits is nobody's name.
bool Doorkeeper::is_own_name(const std::string& host) const {
    const auto parsed = parse_host_and_port(host, 0);
    return parsed && (is_address(parsed->host) || contains(rules_.hosts, lower(parsed->host)));
}

bool Doorkeeper::is_allowed_origin(const std::string& origin) const {
    return contains(rules_.origins, origin);
}

std::optional<Refusal> Doorkeeper::refuse(const Visitor& visitor, TimePoint now) {
    if (!visitor.host) {
        return Refusal{400, "a request says which host it is for"};
    }
    if (!is_own_name(*visitor.host)) {
        return Refusal{403,
                       "this gateway is not \"" + *visitor.host + "\"; --allow-host would let that name in"};
    }
    if (visitor.origin && !is_allowed_origin(*visitor.origin)) {
        const std::size_t scheme = visitor.origin->find("://");
        if (scheme == std::string::npos ||
            lower(visitor.origin->substr(scheme + 3)) != lower(*visitor.host)) {
            return Refusal{403,
                           "the page of another site can't use this gateway; --allow-origin would let it in"};
        }
    }
    const bool is_open =
        rules_.token.empty() || visitor.asks_for_page || (rules_.open_reading && visitor.reads_only);
    return is_open ? std::nullopt : refuse_token(visitor, now);
}

std::optional<Refusal> Doorkeeper::refuse_token(const Visitor& visitor, TimePoint now) {
    constexpr std::string_view scheme = "bearer ";
    if (!visitor.authorization || !lower(*visitor.authorization).starts_with(scheme)) {
        return Refusal{401, "this takes the gateway's token, as \"Authorization: Bearer TOKEN\""};
    }
    for (auto entry = wrong_tries_.begin(); entry != wrong_tries_.end();) {
        std::erase_if(entry->second, [now](TimePoint time) { return now - time > tries_are_kept; });
        entry = entry->second.empty() ? wrong_tries_.erase(entry) : std::next(entry);
    }
    const auto tries = wrong_tries_.find(visitor.address);
    if (tries != wrong_tries_.end() && tries->second.size() >= most_tries) {
        return Refusal{429, "too many wrong tokens from this address; wait a minute"};
    }
    if (equal_in_constant_time(visitor.authorization->substr(scheme.size()), rules_.token)) {
        return std::nullopt;
    }
    if (tries == wrong_tries_.end() && wrong_tries_.size() >= most_addresses) {
        return Refusal{429, "too many wrong tokens; wait a minute"};
    }
    wrong_tries_[visitor.address].push_back(now);
    return Refusal{401, "the token is wrong"};
}

std::string read_token(const std::string& path) {
    const FileDescriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        throw std::runtime_error("token file " + path + ": " + std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode) || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw std::runtime_error("token file " + path + ": others may read it; chmod 600 would mend that");
    }
    char text[longest_token + 2] = "";
    const ssize_t size = read(file.get(), text, sizeof text);
    std::string token{text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    token.erase(token.find_last_not_of(" \r\n") + 1);
    const bool is_printable = std::ranges::all_of(token, [](char c) { return c > ' ' && c <= '~'; });
    if (token.size() < shortest_token || token.size() > longest_token || !is_printable) {
        throw std::runtime_error("token file " + path +
                                 ": it holds no token; ardenvue-gateway token FILE makes one of 64 digits");
    }
    return token;
}

}  // namespace gateway
