// Boost's own sources, compiled once here and not in each source that uses them.
#include <boost/asio/impl/src.hpp>
#include <boost/beast/src.hpp>
