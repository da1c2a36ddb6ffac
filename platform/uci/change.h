// The rules of changing a configuration. A change is made in memory and, in a package that records, noted for
// the delta file. Delta lines, files being read and the interface functions all go through these.
#pragma once

#include "model.h"

namespace uci {

// Changes that name their place directly. The section must be there; results are UCI_OK or UCI_ERR_MEM.
int set_option(uci_section *s, const char *name, const char *value);
int add_to_list(uci_section *s, const char *name, const char *value);
int change_type(uci_section *s, const char *type);
// A null name makes the section anonymous with a generated name; naming::anonymous with a name keeps that
// name.
int create_section(package *p, const char *type, const char *name, naming kind, uci_section **created);

// Changes of what a resolved ptr says, as uci.h describes the functions of like name. They update ptr->s and
// ptr->o.
int apply_set(uci_ptr *ptr);
int apply_add_list(uci_ptr *ptr);
int apply_del_list(uci_ptr *ptr);
int apply_delete(uci_ptr *ptr);
int apply_rename(uci_ptr *ptr);
int apply_reorder(uci_section *s, int position);

// Reads an index as base 10; false if the text is anything else.
bool parse_index(const char *text, long *index);

} // namespace uci
