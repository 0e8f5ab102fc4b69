#pragma once
// PROJ_WEB_API marks what the web library shows to the programs that link it. The library
// is built with hidden visibility, so the Boost.Beast and Asio instantiations inside it
// stay out of its dynamic symbol table, which every process loading it reads at start.

#define PROJ_WEB_API __attribute__((visibility("default")))
