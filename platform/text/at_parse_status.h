// What at_cmd_parse and ParseHfreqInfoResult return.
#ifndef AT_PARSE_STATUS_H
#define AT_PARSE_STATUS_H

enum at_parse_status : int {
    AT_PARSE_OK = 0,
    AT_PARSE_NO_PREFIX = 1,      ///< the line does not carry the prefix
    AT_PARSE_NO_SEPARATOR = 2,   ///< it does, but nowhere with a ':' or the end of the line behind it
    AT_PARSE_UNKNOWN_REPORT = 3, ///< no template has this prefix
    AT_PARSE_NO_MEMORY = 4,
    AT_PARSE_BAD_ARGUMENT = 5, ///< a null pointer, or a kind of text that is not parsed here
    AT_PARSE_NO_RECORD = 6,    ///< ParseHfreqInfoResult: nothing but the switch
};

#endif
