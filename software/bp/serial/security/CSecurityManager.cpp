#include "security/CSecurityManager.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include <json/json.h>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"
#include "crypto/NCrypto.h"

namespace {

using TKey = std::array<unsigned char, SUserRecord::kKeySize>;

// A users file larger than this is not one this system wrote.
const size_t kMaxFileSize = 1024 * 1024;

// A name from the wire, made safe to put in a log line.
std::string ForLog(const std::string& name) {
    std::string text = name.substr(0, 2 * CSecurityManager::kMaxNameLength);
    for (char& c : text) {
        if (c < 0x20 || c > 0x7e || c == '"') {
            c = '?';
        }
    }
    return name.size() > text.size() ? text + "..." : text;
}

bool Derive(const std::string& password, const SUserRecord& record, TKey& key) {
    return NCrypto::Pbkdf2Sha256(password, record.salt.data(), record.salt.size(), record.iterations, key.data(),
                                 key.size());
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

template <size_t N>
bool FromHex(const std::string& text, std::array<unsigned char, N>& bytes) {
    if (text.size() != 2 * N) {
        return false;
    }
    for (size_t i = 0; i < N; ++i) {
        const int high = HexDigit(text[2 * i]);
        const int low = HexDigit(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        bytes[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}

bool IsJsonInt(const Json::Value& value) {
    return (value.type() == Json::intValue || value.type() == Json::uintValue) && value.isInt();
}

// One entry of a users file; why it is invalid, or empty when `record` was filled.
std::string ParseRecord(const Json::Value& entry, SUserRecord& record) {
    if (!entry.isObject()) {
        return "not an object";
    }
    for (const char* member : {"name", "access", "salt", "hash", "iterations"}) {
        if (!entry.isMember(member)) {
            return std::string("no \"") + member + "\"";
        }
    }
    const Json::Value& name = entry["name"];
    const Json::Value& access = entry["access"];
    const Json::Value& iterations = entry["iterations"];
    if (!name.isString() || !entry["salt"].isString() || !entry["hash"].isString()) {
        return "\"name\", \"salt\" and \"hash\" must be texts";
    }
    if (!IsJsonInt(access) || !IsJsonInt(iterations)) {
        return "\"access\" and \"iterations\" must be integers";
    }
    const std::string error = CSecurityManager::CheckName(name.asString());
    if (!error.empty()) {
        return error;
    }
    if (access.asInt() < ACCESS_USER || access.asInt() > ACCESS_PROTECTED) {
        return "access " + std::to_string(access.asInt()) + " is outside 1..6";
    }
    if (!FromHex(entry["salt"].asString(), record.salt)) {
        return "salt is not " + std::to_string(2 * SUserRecord::kSaltSize) + " hex digits";
    }
    if (!FromHex(entry["hash"].asString(), record.hash)) {
        return "hash is not " + std::to_string(2 * SUserRecord::kKeySize) + " hex digits";
    }
    const long long rounds = iterations.asInt();
    if (rounds < CSecurityManager::kMinIterations || rounds > CSecurityManager::kMaxIterations) {
        return "iteration count " + std::to_string(rounds) + " is outside " +
               std::to_string(CSecurityManager::kMinIterations) + ".." +
               std::to_string(CSecurityManager::kMaxIterations);
    }
    record.name = name.asString();
    record.access = static_cast<EAccessLevel>(access.asInt());
    record.iterations = static_cast<unsigned int>(rounds);
    return std::string();
}

}  // namespace

CSecurityManager::CSecurityManager(ILog& log, unsigned int iterations) : m_log(log), m_iterations(iterations) {
    if (iterations < kMinIterations || iterations > kMaxIterations) {
        THROW_EXCEPTION("Iteration count %u is outside %u..%u", iterations, kMinIterations, kMaxIterations);
    }
    m_dummy.iterations = iterations;
}

std::string CSecurityManager::CheckName(const std::string& name) {
    if (name.empty()) {
        return "user name is empty";
    }
    if (name.size() > kMaxNameLength) {
        return "user name is longer than " + std::to_string(kMaxNameLength) + " characters";
    }
    for (char c : name) {
        if (c < 0x20 || c > 0x7e || c == '"') {
            return "user name \"" + ForLog(name) + "\" holds a character other than printable ASCII or a '\"'";
        }
    }
    return std::string();
}

SUserRecord CSecurityManager::MakeRecord(const std::string& name, const std::string& password,
                                         EAccessLevel level) const {
    // HMAC pads its key with zero bytes, so "pw" and "pw\0" would derive the same key.
    if (password.find('\0') != std::string::npos) {
        THROW_EXCEPTION("Cannot set the password of user %s: it holds a NUL character", name.c_str());
    }
    SUserRecord record;
    record.name = name;
    record.access = level;
    record.iterations = m_iterations;
    if (!NCrypto::RandomBytes(record.salt.data(), record.salt.size())) {
        THROW_EXCEPTION("Cannot draw a random salt for user %s", name.c_str());
    }
    if (!Derive(password, record, record.hash)) {
        THROW_EXCEPTION("Cannot derive the password key of user %s", name.c_str());
    }
    return record;
}

bool CSecurityManager::Login(const std::string& user, const std::string& password, EAccessLevel& level) {
    const auto found = m_users.find(user);
    const bool known = found != m_users.end();
    const SUserRecord& record = known ? found->second : m_dummy;
    TKey key{};
    const bool derived = Derive(password, record, key);
    const bool match = NCrypto::EqualInConstantTime(key.data(), record.hash.data(), key.size()) && derived && known &&
                       password.find('\0') == std::string::npos;
    NCrypto::Cleanse(key.data(), key.size());
    if (!match) {
        m_log.LogFYI(FYI_LOGIN, "Login of user \"%s\" refused", ForLog(user).c_str());
        return false;
    }
    level = record.access;
    m_log.LogFYI(FYI_LOGIN, "User \"%s\" logged in with access level %d", user.c_str(),
                 static_cast<int>(record.access));
    return true;
}

void CSecurityManager::AddUser(const std::string& name, const std::string& password, EAccessLevel level) {
    const std::string error = CheckName(name);
    if (!error.empty()) {
        THROW_EXCEPTION("Cannot add user: %s", error.c_str());
    }
    if (level < ACCESS_USER || level > ACCESS_PROTECTED) {
        THROW_EXCEPTION("Cannot add user %s: access level %d is outside 1..6", name.c_str(), static_cast<int>(level));
    }
    if (HasUser(name)) {
        THROW_EXCEPTION("Cannot add user %s: it already exists", name.c_str());
    }
    SUserRecord record = MakeRecord(name, password, level);
    m_users.emplace(name, std::move(record));
    m_log.Log("User \"%s\" added with access level %d", name.c_str(), static_cast<int>(level));
}

void CSecurityManager::RemoveUser(const std::string& name) {
    if (m_users.erase(name) == 0) {
        THROW_EXCEPTION("Cannot remove user \"%s\": no such user", ForLog(name).c_str());
    }
    m_log.Log("User \"%s\" removed", name.c_str());
}

void CSecurityManager::SetPassword(const std::string& name, const std::string& password) {
    const auto found = m_users.find(name);
    if (found == m_users.end()) {
        THROW_EXCEPTION("Cannot set the password of user \"%s\": no such user", ForLog(name).c_str());
    }
    found->second = MakeRecord(name, password, found->second.access);
    m_log.Log("Password of user \"%s\" changed", name.c_str());
}

std::vector<std::string> CSecurityManager::GetUserNames() const {
    std::vector<std::string> names;
    for (const auto& entry : m_users) {
        names.push_back(entry.first);
    }
    return names;
}

void CSecurityManager::Load(const std::string& path) {
    const std::string file = NRuntimeRoot::Path(path);
    std::string contents;
    std::string reason;
    const NFileUtil::EReadResult read = NFileUtil::ReadFile(file, kMaxFileSize, contents, reason);
    if (read == NFileUtil::EReadResult::MISSING) {
        m_users.clear();
        m_log.Log("No users file %s: no users", file.c_str());
        return;
    }
    if (read != NFileUtil::EReadResult::READ) {
        THROW_EXCEPTION("Users file %s: %s", file.c_str(), reason.c_str());
    }

    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string error;
    if (!reader->parse(contents.data(), contents.data() + contents.size(), &root, &error)) {
        for (char& c : error) {
            c = c == '\n' ? ' ' : c;
        }
        THROW_EXCEPTION("Users file %s: not valid JSON: %s", file.c_str(), error.c_str());
    }
    if (!root.isArray()) {
        THROW_EXCEPTION("Users file %s: not a JSON array", file.c_str());
    }
    std::map<std::string, SUserRecord> users;
    for (Json::ArrayIndex i = 0; i < root.size(); ++i) {
        SUserRecord record;
        error = ParseRecord(root[i], record);
        if (error.empty() && users.count(record.name) != 0) {
            error = "user \"" + record.name + "\" appears twice";
        }
        if (!error.empty()) {
            THROW_EXCEPTION("Users file %s: entry %u: %s", file.c_str(), i + 1, error.c_str());
        }
        users[record.name] = record;
    }
    m_users.swap(users);
    m_loadedPath = path;
    m_stamp = StampOf(file);
    m_log.Log("Loaded %zu users from %s", m_users.size(), file.c_str());
}

bool CSecurityManager::SFileStamp::operator==(const SFileStamp& other) const {
    return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
           modifiedNs == other.modifiedNs;
}

CSecurityManager::SFileStamp CSecurityManager::StampOf(const std::string& file) {
    SFileStamp stamp;
    struct stat info {};
    if (stat(file.c_str(), &info) == 0) {
        stamp.exists = true;
        stamp.device = info.st_dev;
        stamp.inode = info.st_ino;
        stamp.size = info.st_size;
        stamp.modifiedNs = static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    }
    return stamp;
}

bool CSecurityManager::Refresh() {
    if (m_loadedPath.empty()) {
        return false;
    }
    const SFileStamp now = StampOf(NRuntimeRoot::Path(m_loadedPath));
    if (now == m_stamp) {
        return false;
    }
    try {
        Load(m_loadedPath);
        return true;
    } catch (const CException& e) {
        m_log.LogError("%s; the accounts loaded before stay", e.GetMessage().c_str());
        m_stamp = now;  // not tried again until the file changes again
        return false;
    }
}

void CSecurityManager::Save(const std::string& path) const {
    const std::filesystem::path file = NRuntimeRoot::Path(path);
    std::filesystem::path directory = file.parent_path();
    if (directory.empty()) {
        directory = ".";
    }
    std::error_code created;
    std::filesystem::create_directories(directory, created);
    if (created) {
        THROW_EXCEPTION("Users file %s: cannot create its directory: %s", file.c_str(), created.message().c_str());
    }

    Json::Value root(Json::arrayValue);
    for (const auto& entry : m_users) {
        const SUserRecord& record = entry.second;
        Json::Value item(Json::objectValue);
        item["name"] = record.name;
        item["access"] = static_cast<int>(record.access);
        item["salt"] = NCrypto::ToHex(record.salt.data(), record.salt.size());
        item["hash"] = NCrypto::ToHex(record.hash.data(), record.hash.size());
        item["iterations"] = record.iterations;
        root.append(item);
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    const std::string contents = Json::writeString(writer, root) + "\n";

    if (!NFileUtil::WriteFileAtomically(file.string(), contents, 0600)) {
        THROW_EXCEPTION("Users file %s: cannot save: %s", file.c_str(), strerror(errno));
    }
    if (path == m_loadedPath) {
        m_stamp = StampOf(file.string());  // what this manager holds: nothing to reload
    }
    m_log.Log("Saved %zu users to %s", m_users.size(), file.c_str());
}

bool CSecurityManager::IsCommandAllowed(ERemoteAccess access, bool isQuery, bool isLoginCommand, bool loggedIn) {
    switch (access) {
    case REMOTE_CLOSED:
        return false;
    case REMOTE_FULL:
        return true;
    case REMOTE_READ_ONLY:
        return isQuery || isLoginCommand;
    case REMOTE_LOGIN_REQUIRED:
    default:
        return loggedIn || isLoginCommand;
    }
}
