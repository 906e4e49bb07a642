// Paths as text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace keldane {

/// "/a/b" → {"/", "a", "b"}; "a//b/" → {"a", "b"}: a leading slash is its own component, later ones separate.
std::vector<std::string> pathComponents(std::string_view path);
/// Last component, without trailing slashes; "/" for the root, empty for empty text.
std::string lastPathComponent(std::string_view path);
/// Joins the two with exactly one slash between them. With an empty path the result is the component.
std::string appendPathComponent(std::string_view path, std::string_view component);
/// "txt" for "/a/b.txt", empty for "/a/b", "/a/.profile" and "/a/b.".
std::string pathExtension(std::string_view path);
/// Whether an absolute path names the folder or something below it. Neither path ends with a slash, except
/// "/" itself.
bool isAtOrBelow(std::string_view path, std::string_view folder);
/// "/a" for "/a/b", "/" for "/a" and for "/".
std::string_view parentPath(std::string_view path);
/// "b" for "/a/b", empty for "/": the part of the argument after its last slash.
std::string_view entryName(std::string_view path);

}  // namespace keldane
