#pragma once

#include <string_view>

namespace framehold {

/// The texts that a report page is put together from, embedded when the program is built.
struct PageAssets {
    std::string_view page;    // HTML with the marks <!--style-->, <!--data--> and <!--script-->
    std::string_view style;   // CSS, of the plots and of the page
    std::string_view script;  // JavaScript, of the plots and of the page
};

/// Null in a program that was built without Node's npm.
const PageAssets* pageAssets();

}  // namespace framehold
