#pragma once
// CSecurityManager: the login accounts of the ASCII front-end and the rules of which
// commands a port's remote-access setting admits.
//
// Accounts: a name, an access level (1..6, EAccessLevel) and a password kept only as a
// salted PBKDF2-HMAC-SHA256 key (16-byte random salt, 32-byte key). The plain password
// is never stored, kept or logged; it may have any length, empty too, but no NUL
// character (HMAC would not tell "pw" from "pw\0"). Names are case-sensitive, 1..32
// printable ASCII characters (spaces allowed), without a quotation mark.
//
// Changes (AddUser, RemoveUser, SetPassword) live in memory until Save; Load replaces
// every account. The manager knows nothing of the "Default User": when nobody is logged
// in, the parser acts with kDefaultAccessGroup, so a projector without a users file has
// that default user only.
//
// Users file (Load / Save), by default kDefaultUsersFile under the runtime root: a JSON
// array of {"name": text, "access": 1..6, "salt": 32 hex digits, "hash": 64 hex digits,
// "iterations": kMinIterations..kMaxIterations}. Other members are ignored. Save writes a
// temporary file beside it, flushes it, renames it over the old file and flushes the
// directory, so power lost at any instant leaves the old or the new file whole. The file
// has mode 0600.
//
// Remote access: the per-port control "RAL" holds an ERemoteAccess value.
//   value  name                   commands admitted
//   0      REMOTE_CLOSED          none: the port handler does not open the port at all
//   1      REMOTE_FULL            every command
//   2      REMOTE_READ_ONLY       queries, and the login / logout command; no other settings,
//                                 whether a user is logged in or not
//   3      REMOTE_LOGIN_REQUIRED  until a user logs in: the login / logout command only (set
//                                 or query, so the login state can be asked); afterwards all
//   other  as 3 (the safe side)
//
// Thread contract: one instance per front-end process, used on its single loop thread
// only; there are no locks. The log must outlive the manager.

#include <map>
#include <string>
#include <vector>

#include "control/ControlTypes.h"
#include "log/ILog.h"
#include "security/SUserRecord.h"

// The value of a port's "RAL" control; see the table above.
enum ERemoteAccess : int {
    REMOTE_CLOSED = 0,
    REMOTE_FULL = 1,
    REMOTE_READ_ONLY = 2,
    REMOTE_LOGIN_REQUIRED = 3,
};

class CSecurityManager {
public:
    static constexpr const char* kDefaultUsersFile = "/etc/projector/users.json";
    // PBKDF2 rounds for new passwords.
    static constexpr unsigned int kDefaultIterations = 100000;
    // Fewer rounds than this make a key cheap to brute-force: a file holding such a
    // record is refused, and so is a manager asked to write one (tests use this value).
    static constexpr unsigned int kMinIterations = 1000;
    // More rounds than this would let a planted file stall every login for minutes.
    static constexpr unsigned int kMaxIterations = 10000000;
    static constexpr size_t kMaxNameLength = 32;
    // The access group the parser gives commands while nobody is logged in: operator, so
    // that the ordinary controls work out of the box.
    static constexpr EAccessLevel kDefaultAccessGroup = ACCESS_OPERATOR;

    // Starts with no accounts. `iterations` is the PBKDF2 count given to passwords set
    // from now on; throws CException outside kMinIterations..kMaxIterations.
    explicit CSecurityManager(ILog& log, unsigned int iterations = kDefaultIterations);
    CSecurityManager(const CSecurityManager&) = delete;
    CSecurityManager& operator=(const CSecurityManager&) = delete;

    // True when `user` exists and `password` is its password (a password holding a NUL
    // never matches);
    // then `level` is set to the user's access level, otherwise it is left untouched.
    // An unknown name costs one key derivation like a known one (against a dummy record
    // with the manager's iteration count), so the time taken does not tell which names
    // exist. Every attempt is logged with FYI_LOGIN, naming the user, never the password.
    bool Login(const std::string& user, const std::string& password, EAccessLevel& level);

    // Account changes. Each throws CException with the reason and changes nothing when
    // the name is invalid, the level is outside 1..6, the user already exists (AddUser)
    // or does not exist (RemoveUser, SetPassword), the password holds a NUL character,
    // or no random salt can be drawn.
    void AddUser(const std::string& name, const std::string& password, EAccessLevel level);
    void RemoveUser(const std::string& name);
    // Keeps the user's level; a new salt is drawn.
    void SetPassword(const std::string& name, const std::string& password);

    bool HasUser(const std::string& name) const { return m_users.count(name) != 0; }
    // Sorted by byte value.
    std::vector<std::string> GetUserNames() const;

    // Replaces the accounts with those of `path` (a system path under the runtime root).
    // A missing file leaves no accounts. A file that cannot be read or is malformed
    // throws CException "Users file <resolved path>: <reason>" and keeps the accounts as
    // they were.
    void Load(const std::string& path = kDefaultUsersFile);
    // Writes every account to `path`, creating its directory when missing. Throws
    // CException "Users file <resolved path>: <reason>" when it cannot; the old file is
    // then untouched and no temporary file is left.
    void Save(const std::string& path = kDefaultUsersFile) const;
    // Loads the file last loaded again when it has changed since it was loaded or saved
    // here (another process, such as the JSON-RPC session handler, changed a password), so
    // every front-end logs in against the same accounts. A file that cannot be loaded now
    // is logged and the accounts stay as they were. True when it reloaded.
    bool Refresh();

    // Whether a port set to `access` admits a command. isLoginCommand is true for the
    // login and logout commands, set or query; loggedIn when a user is logged in on
    // the connection.
    static bool IsCommandAllowed(ERemoteAccess access, bool isQuery, bool isLoginCommand, bool loggedIn);

    // Why `name` is not a valid user name, or empty when it is.
    static std::string CheckName(const std::string& name);

private:
    // What tells one version of the users file from another.
    struct SFileStamp {
        bool exists = false;
        unsigned long long device = 0;
        unsigned long long inode = 0;
        long long size = 0;
        long long modifiedNs = 0;
        bool operator==(const SFileStamp& other) const;
    };
    static SFileStamp StampOf(const std::string& file);

    SUserRecord MakeRecord(const std::string& name, const std::string& password, EAccessLevel level) const;

    ILog& m_log;
    unsigned int m_iterations;
    std::map<std::string, SUserRecord> m_users;
    // Stands in for an unknown user so that a failed lookup costs a full derivation.
    SUserRecord m_dummy;
    std::string m_loadedPath;  // the system path of the last Load; empty before one
    mutable SFileStamp m_stamp;
};
