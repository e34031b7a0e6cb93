// The files of the page, embedded when the tool is built.
#ifndef WQZ_TOOL_PREVIEW_PAGE_FILES_H
#define WQZ_TOOL_PREVIEW_PAGE_FILES_H

#include <string_view>
#include <vector>

struct Page_File {
    std::string_view path;  ///< as browsers ask for it: "/" is the page itself
    std::string_view type;  ///< the content type
    std::string_view content;
};

extern const std::vector<Page_File> Page_Files;

#endif  // WQZ_TOOL_PREVIEW_PAGE_FILES_H
