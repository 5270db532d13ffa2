/* A program that serves a camera's objects to an agent over AgentX: bench-agentx AGENTX-SOCKET OBJECTS */

#include <net-snmp/net-snmp-config.h>
/* in this order */
#include <net-snmp/net-snmp-includes.h>
/* in this order */
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <signal.h>
#include <stdio.h>

#include "objects.h"

static int Answer(netsnmp_agent_request_info* info, netsnmp_request_info* request, Object* object) {
    if (Refresh(object) < 0) return netsnmp_set_request_error(info, request, SNMP_ERR_GENERR);
    if (object->type == 's') {
        return snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, object->octets, object->size);
    }
    return snmp_set_var_typed_integer(request->requestvb, object->type == 'g' ? ASN_GAUGE : ASN_INTEGER,
                                      object->number);
}

static int Handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                  netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    Object* object = registration->my_reg_void;
    (void)handler;
    for (netsnmp_request_info* request = requests; request != NULL; request = request->next) {
        if (info->mode == MODE_GET) {
            Answer(info, request, object);
        } else if (info->mode == MODE_SET_RESERVE1 && request->requestvb->type != ASN_OCTET_STR) {
            netsnmp_set_request_error(info, request, SNMP_ERR_WRONGTYPE);
        } else if (info->mode == MODE_SET_COMMIT &&
                   Command(object, request->requestvb->val.string, request->requestvb->val_len) < 0) {
            netsnmp_set_request_error(info, request, SNMP_ERR_COMMITFAILED);
        }
    }
    return SNMP_ERR_NOERROR;
}

static int Register(Object* object) {
    oid name[kMaxNames];
    for (size_t i = 0; i < object->length; ++i) name[i] = object->name[i];
    netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
        object->text, Handle, name, object->length, object->set == '-' ? HANDLER_CAN_RONLY : HANDLER_CAN_RWRITE);
    registration->my_reg_void = object;
    return netsnmp_register_instance(registration);
}

static volatile sig_atomic_t s_ended = 0;

static void End(int number) {
    (void)number;
    s_ended = 1;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fputs("usage: bench-agentx AGENTX-SOCKET OBJECTS\n", stderr);
        return 2;
    }
    signal(SIGTERM, End);
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, argv[1]);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    init_agent("bench");
    size_t count = 0;
    Object* objects = ReadObjects(argv[2], &count);
    for (size_t i = 0; i < count; ++i) {
        if (Register(&objects[i]) != MIB_REGISTERED_OK) fprintf(stderr, "%s is not registered\n", objects[i].text);
    }
    init_snmp("bench");
    while (!s_ended) agent_check_and_process(1);
    snmp_shutdown("bench");
    return 0;
}
