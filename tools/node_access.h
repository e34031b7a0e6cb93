// Who may open a node, and who has it open.
#ifndef WQZ_TOOL_NODE_ACCESS_H
#define WQZ_TOOL_NODE_ACCESS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// A node's rights, and this user's place in them.
struct Node_Access {
    std::string node;
    std::string owner;
    std::string group;
    uint32_t mode = 0;          ///< the permission bits
    std::string user;           ///< this user
    bool is_root = false;       ///< the user's rights are not limited by the mode
    bool is_owner = false;      ///< this user owns the node
    bool in_group = false;      ///< this process has the rights of the node's group
    bool group_listed = false;  ///< the system lists the user in the group, from the next login on
};

Node_Access Look_At_Node(const std::string& node);

struct Holders {
    std::vector<std::string> names;    ///< "cheese (process 4711)"
    std::vector<std::string> numbers;  ///< their process ids
    bool all_seen = true;              ///< false when this user may not look at some processes
};

/// @return the other processes that have the node open
Holders Holders_Of(const std::string& node, const std::filesystem::path& processes = "/proc");

#endif  // WQZ_TOOL_NODE_ACCESS_H
