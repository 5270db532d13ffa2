// Included before everything else: declares the agent's API as in net-snmp 5.4, where the module uses what has changed
// since. The module must not name what 5.4 lacks, and arguments must fit its narrower parameters.
#pragma once

#include "core/NetSnmp.h"

namespace older {

inline int set_var_typed_value(netsnmp_variable_list* variable, u_char type, const u_char* value, size_t length) {
    return ::snmp_set_var_typed_value(variable, type, value, length);
}

inline netsnmp_variable_list* varlist_add_variable(netsnmp_variable_list** list, const oid* name, size_t nameLength,
                                                   u_char type, const u_char* value, size_t length) {
    return ::snmp_varlist_add_variable(list, name, nameLength, type, value, length);
}

inline netsnmp_handler_registration* create_handler_registration(const char* name, Netsnmp_Node_Handler* handler,
                                                                 oid* root, size_t rootLength, int modes) {
    return ::netsnmp_create_handler_registration(name, handler, root, rootLength, modes);
}

inline int set_row_column(netsnmp_table_row* row, unsigned int column, int type, const char* value, size_t length) {
    return ::netsnmp_set_row_column(row, column, type, value, length);
}

}  // namespace older

#define snmp_set_var_typed_value older::set_var_typed_value
#define snmp_varlist_add_variable older::varlist_add_variable
#define netsnmp_create_handler_registration older::create_handler_registration
#define netsnmp_set_row_column older::set_row_column
#define netsnmp_delete_table_data_set net_snmp_5_4_has_no_netsnmp_delete_table_data_set
#define netsnmp_table_data_delete_table net_snmp_5_4_does_not_declare_netsnmp_table_data_delete_table
