/* Parsing of unsolicited reports into named fields. One thread at a time. The names and their order are part of the
 * contract: the handlers ask for fields by these names (docs/reports.md has them, report by report). */
#ifndef AT_PARSE_H
#define AT_PARSE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One field of a report, in the report's order. Name and value live as long as the list. */
struct at_field {
    const char *AtFieldName;
    const char *AtFieldValue; /* NULL is read as an empty text */
    uintptr_t reserved;
    struct at_field *next;
};

/* Parses line as the report that prefix names. reserved 0, kind 3: an unsolicited report. 0 and a list (maybe
 * empty) in *head, or an error code and *head untouched. */
int at_cmd_parse(struct at_field **head, const char *prefix, const char *line, int reserved, int kind);

/* Releases a whole list; NULL is accepted. */
void free_at_cmd(struct at_field *head);

/* Frequency records of a ^HFREQINFO report: nine words each, in the order of the report's fields. */
struct hfreq_info_holder {
    const int32_t *first; /* the first record, or NULL */
    uintptr_t reserved[2];
};

/* Turns the fields of a ^HFREQINFO report into records. 0 when there is at least one. */
int ParseHfreqInfoResult(const struct at_field *fields, struct hfreq_info_holder *holder);

/* Releases what ParseHfreqInfoResult stored; a holder without records is accepted. */
void HfreqInfoExFree(struct hfreq_info_holder *holder);

#ifdef __cplusplus
}
#endif

#endif
