#include "Middleware/MIO_JSON.h"

#include <climits>
#include <cmath>

cJSON* MIO_JSON_Parse(const char* value) { return value ? cJSON_Parse(value) : nullptr; }

void MIO_JSON_Delete(cJSON* c)
{
    if (c) cJSON_Delete(c);
}

cJSON* MIO_JSON_GetObjectItem(const cJSON* object, const char* string)
{
    if (!object || !string) return nullptr;
    return cJSON_GetObjectItem(object, string);
}

int MIO_JSON_NumberToInt(double value)
{
    if (std::isnan(value)) return 0;
    if (value >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (value <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(value);
}

int MIO_JSON_GetObjectItemInt(const cJSON* object, const char* string)
{
    if (!object || !string) return -2;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    if (!item) return -1;
    if (!cJSON_IsNumber(item)) return -3;
    return MIO_JSON_NumberToInt(item->valuedouble);
}

char* MIO_JSON_GetObjectItemStr(const cJSON* object, const char* string)
{
    if (!object || !string) return nullptr;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    if (!item || !cJSON_IsString(item)) return nullptr;
    return item->valuestring;
}

int MIO_JSON_GetObjectItemBool(const cJSON* object, const char* string)
{
    if (!object || !string) return -1;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    if (!item || !cJSON_IsBool(item)) return -1;
    return cJSON_IsTrue(item) ? 1 : 0;
}

cJSON* MIO_JSON_GetArrayItem(const cJSON* array, int index)
{
    if (!array) return nullptr;
    return cJSON_GetArrayItem(array, index);
}

int MIO_JSON_GetArrayItemInt(const cJSON* array, int index)
{
    if (!array || !cJSON_IsArray(array) || index < 0 || index >= cJSON_GetArraySize(array)) return -1;
    const cJSON* item = cJSON_GetArrayItem(array, index);
    if (!item || !cJSON_IsNumber(item)) return -1;
    return MIO_JSON_NumberToInt(item->valuedouble);
}

int MIO_JSON_GetArraySize(const cJSON* array) { return array ? cJSON_GetArraySize(array) : 0; }

int MIO_JSON_GetTypeFormItem(const cJSON* Item) { return Item ? Item->type : 0; }

void MIO_JSON_AddItemToObject(cJSON* object, const char* string, cJSON* item)
{
    if (object && string && item) cJSON_AddItemToObject(object, string, item);
}

void MIO_JSON_AddItemToArray(cJSON* array, cJSON* item)
{
    if (array && item) cJSON_AddItemToArray(array, item);
}

cJSON* MIO_JSON_CreateObject(void) { return cJSON_CreateObject(); }
cJSON* MIO_JSON_CreateArray(void) { return cJSON_CreateArray(); }
cJSON* MIO_JSON_CreateString(const char* string) { return string ? cJSON_CreateString(string) : nullptr; }
cJSON* MIO_JSON_CreateNumber(double num) { return cJSON_CreateNumber(num); }
cJSON* MIO_JSON_CreateTrue(void) { return cJSON_CreateTrue(); }
cJSON* MIO_JSON_CreateFalse(void) { return cJSON_CreateFalse(); }
char* MIO_JSON_Print(const cJSON* item) { return item ? cJSON_Print(item) : nullptr; }
char* MIO_JSON_PrintUnformatted(const cJSON* item) { return item ? cJSON_PrintUnformatted(item) : nullptr; }
