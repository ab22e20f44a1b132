// `eqdrc serve`: the studio and its API over HTTP, for tuning a playing device.
#ifndef EQDRC_SERVER_SERVE_H
#define EQDRC_SERVER_SERVE_H

#include <cstdio>
#include <string>
#include <vector>

namespace eqdrc_server {

struct ServeOptions {
    std::string tuning;                   // the one file written
    std::string listen = "127.0.0.1:8080";
    std::string tokenFile;
    std::string meters;                   // a player's meter file; empty: none
    std::string site;                     // the studio's files; empty: beside the program
    std::vector<std::string> allowHosts;  // host names accepted besides addresses
    int frameLen = 768;
};

// Serves until SIGINT or SIGTERM; returns the exit status. Problems with the options
// or the tuning throw with one line.
int run_serve(const ServeOptions &options, const std::string &version, FILE *log);

// Writes a new token of 256 random bits, as hex, to a new file of mode 0600.
void write_new_token(const std::string &path);

}  // namespace eqdrc_server

#endif
