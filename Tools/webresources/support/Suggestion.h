#ifndef TOOLS_WEBRESOURCES_SUPPORT_SUGGESTION_H_
#define TOOLS_WEBRESOURCES_SUPPORT_SUGGESTION_H_

#include <string>
#include <vector>

/// The one of `words` that somebody who typed `typed` has probably meant: the one that the fewest
/// changes of a letter lead to, at most two and fewer than the letters typed. Returns an empty
/// string if there is none.
std::string Suggestion(const std::string& typed, const std::vector<std::string>& words);

#endif  // TOOLS_WEBRESOURCES_SUPPORT_SUGGESTION_H_
