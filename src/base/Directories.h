#pragma once

#include <QString>

// Where the product lies: the folder above that of the running program.
QString installationDirectory();

// Where the user's files lie: "veldane" below what $XDG_CONFIG_HOME, $XDG_DATA_HOME and $XDG_CACHE_HOME name, or
// below ~/.config, ~/.local/share and ~/.cache (XDG Base Directory Specification, which ignores relative ones).
// $VELDANE_USER_DIR overrides all three. The folder need not exist.
enum class UserFiles { Config, Data, Cache };
QString userDirectory(UserFiles files);
