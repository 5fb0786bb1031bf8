// Asio's own code, compiled once for everybody.

#include "core/common/rpc/loop/asio.h"

#include <asio/impl/src.hpp>
