// Looks at the rights of a node, and for the processes that have it open.
#include "node_access.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "text.h"

namespace {

namespace fs = std::filesystem;

constexpr mode_t Permission_Bits = 07777;

/// Runs a look-up of the user or group list with a buffer that is large enough for the entry.
template <typename Entry, typename Id>
bool Look_Up(int (*look_up)(Id, Entry*, char*, size_t, Entry**), Id id, Entry& entry, std::vector<char>& buffer)
{
    Entry* found = nullptr;
    buffer.resize(4096);
    while (look_up(id, &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    return found != nullptr;
}

std::string User_Name(uid_t id)
{
    passwd entry{};
    std::vector<char> buffer;
    return Look_Up(getpwuid_r, id, entry, buffer) ? entry.pw_name : std::to_string(id);
}

std::string Group_Name(gid_t id)
{
    group entry{};
    std::vector<char> buffer;
    return Look_Up(getgrgid_r, id, entry, buffer) ? entry.gr_name : std::to_string(id);
}

bool Has_Group(gid_t id)
{
    std::vector<gid_t> groups(static_cast<size_t>(std::max(0, getgroups(0, nullptr))));
    groups.resize(static_cast<size_t>(std::max(0, getgroups(static_cast<int>(groups.size()), groups.data()))));
    return getegid() == id || std::ranges::find(groups, id) != groups.end();
}

/// @return whether the system's list of groups has the user in the group, whatever this process was given at its start
bool Is_Listed(const std::string& user, gid_t id)
{
    group entry{};
    std::vector<char> buffer;
    char* none = nullptr;
    for (char** member = Look_Up(getgrgid_r, id, entry, buffer) ? entry.gr_mem : &none; *member != nullptr; ++member) {
        if (user == *member) {
            return true;
        }
    }
    return false;
}

enum class Sight { Open, Not_Open, Hidden };

Sight Look_At_Process(const fs::path& process, const std::string& node)
{
    std::error_code error;
    auto entry = fs::directory_iterator(process / "fd", error);
    if (error) {
        return error == std::errc::permission_denied ? Sight::Hidden : Sight::Not_Open;  // or it has just ended
    }
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code closed_meanwhile;
        if (fs::read_symlink(entry->path(), closed_meanwhile) == node) {
            return Sight::Open;
        }
    }
    return Sight::Not_Open;
}

std::string Process_Name(const fs::path& process)
{
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name.empty() ? "a program" : Printable(name);
}

}  // namespace

Node_Access Look_At_Node(const std::string& node)
{
    Node_Access access;
    access.node = node;
    access.user = User_Name(geteuid());
    access.is_root = geteuid() == 0;
    struct stat status {};
    if (stat(node.c_str(), &status) == 0) {
        access.owner = User_Name(status.st_uid);
        access.group = Group_Name(status.st_gid);
        access.mode = status.st_mode & Permission_Bits;
        access.is_owner = geteuid() == status.st_uid;
        access.in_group = Has_Group(status.st_gid);
        access.group_listed = Is_Listed(access.user, status.st_gid);
    }
    return access;
}

Holders Holders_Of(const std::string& node, const fs::path& processes)
{
    Holders holders;
    const std::string self = std::to_string(getpid());
    std::error_code error;
    for (auto entry = fs::directory_iterator(processes, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string number = entry->path().filename();
        if (number == self || number.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        const Sight sight = Look_At_Process(entry->path(), node);
        holders.all_seen = holders.all_seen && sight != Sight::Hidden;
        if (sight == Sight::Open) {
            holders.names.push_back(Process_Name(entry->path()) + " (process " + number + ")");
            holders.numbers.push_back(number);
        }
    }
    return holders;
}
