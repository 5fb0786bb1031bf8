// The command line of web_browser.

#ifndef EXAMPLES_WEB_BROWSER_APP_DESCRIPTION_H_
#define EXAMPLES_WEB_BROWSER_APP_DESCRIPTION_H_

#include "tools/cli/program_description.h"

namespace web_browser {

cli::ProgramDescription DescribeWebBrowser();

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_APP_DESCRIPTION_H_
