// Compiles the parts of these libraries that are not templates once, instead of with every file
// that uses them.
#include <boost/asio/impl/src.hpp>
#include <boost/asio/ssl/impl/src.hpp>
#include <boost/beast/src.hpp>
