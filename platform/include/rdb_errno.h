#ifndef ZARVO_RDB_ERRNO_H
#define ZARVO_RDB_ERRNO_H

namespace Zarvo {
namespace NativeRdb {

// Results of the relational store: E_OK, or one code per failure class.
constexpr int E_OK = 0;
constexpr int E_BASE = 14800000;
constexpr int E_ERROR = E_BASE;
constexpr int E_INVALID_FILE_PATH = E_BASE + 1;  // empty or relative path
constexpr int E_DB_NOT_EXIST = E_BASE + 2;       // the store opens existing files only
constexpr int E_NOT_SUPPORT = E_BASE + 3;        // an option the host store cannot honour
constexpr int E_SQLITE_ERROR = E_BASE + 4;       // SQLite refused the file or the statement
constexpr int E_CALLBACK_FAILED = E_BASE + 5;    // an open callback returned non-zero
constexpr int E_ALREADY_CLOSED = E_BASE + 6;     // the result set was closed
constexpr int E_ROW_OUT_RANGE = E_BASE + 7;      // no row at the requested position
constexpr int E_COLUMN_OUT_RANGE = E_BASE + 8;   // no column with that index
constexpr int E_INVALID_ARGS = E_BASE + 9;       // e.g. a null callback

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RDB_ERRNO_H
