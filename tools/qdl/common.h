// What the qdl commands share: one-line failure messages that never show a password.
#pragma once

#include <string>

namespace quorbex::qdl {

// `text` on one line (each run of line breaks becomes "; "), every password in it shown as "***"
// (MaskSecrets).
std::string OneLine(const std::string& text);

// The texts a DataLayer's ErrorStatus collected ("\r\n1) a\r\n2) b"), as "a; b".
std::string Reports(const std::string& error_status);

// Prints "qdl <command>: <message>" on stderr as one line without passwords, and returns the exit
// code of a failed command (1).
int Fail(const std::string& command, const std::string& message);

}  // namespace quorbex::qdl
