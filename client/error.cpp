#include "ardenvue/error.h"

const char* ardenvue_error_text(int code) {
    switch (code) {
        case ARDENVUE_ERROR_ARGUMENT:
            return "the call can't be meant so";
        case ARDENVUE_ERROR_MEMORY:
            return "there is no memory left";
        case ARDENVUE_ERROR_SYSTEM:
            return "a system call failed";
        case ARDENVUE_ERROR_TIMEOUT:
            return "nothing came in time";
        case ARDENVUE_ERROR_INTERRUPTED:
            return "a signal came";
        case ARDENVUE_ERROR_NONE_YET:
            return "nothing has come yet";
        case ARDENVUE_ERROR_DATA:
            return "these bytes are none of the service's";
        case ARDENVUE_ERROR_BUSY:
            return "another process holds the port";
        case ARDENVUE_ERROR_COMMAND:
            return "there is no such command or value";
        case ARDENVUE_ERROR_NOT_REPORTED:
            return "no report shows this";
        case ARDENVUE_ERROR_GUARD:
            return "there is no guard for the stick inputs";
        default:
            return code < 0 ? "an error of a later version" : "no error";
    }
}
