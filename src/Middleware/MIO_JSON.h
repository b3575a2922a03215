// A thin, null-tolerant layer over cJSON. Results of the typed getters are in band: a
// negative wire value and a missing member can look alike, and callers know it.
#pragma once

#include <cJSON.h>

cJSON* MIO_JSON_Parse(const char* value);
void MIO_JSON_Delete(cJSON* c);
cJSON* MIO_JSON_GetObjectItem(const cJSON* object, const char* string);
int MIO_JSON_GetObjectItemInt(const cJSON* object, const char* string);   // -2 null, -1 missing, -3 not a number
char* MIO_JSON_GetObjectItemStr(const cJSON* object, const char* string);
int MIO_JSON_GetObjectItemBool(const cJSON* object, const char* string);  // 1, 0, or -1
cJSON* MIO_JSON_GetArrayItem(const cJSON* array, int index);
int MIO_JSON_GetArrayItemInt(const cJSON* array, int index);              // -1 for anything amiss
int MIO_JSON_GetArraySize(const cJSON* array);
int MIO_JSON_GetTypeFormItem(const cJSON* Item);
void MIO_JSON_AddItemToObject(cJSON* object, const char* string, cJSON* item);
void MIO_JSON_AddItemToArray(cJSON* array, cJSON* item);
cJSON* MIO_JSON_CreateObject(void);
cJSON* MIO_JSON_CreateArray(void);
cJSON* MIO_JSON_CreateString(const char* string);
cJSON* MIO_JSON_CreateNumber(double num);
cJSON* MIO_JSON_CreateTrue(void);
cJSON* MIO_JSON_CreateFalse(void);
char* MIO_JSON_Print(const cJSON* item);
char* MIO_JSON_PrintUnformatted(const cJSON* item);

// Wire numbers are integers; a double outside the int range (or NaN) saturates instead of
// invoking undefined behaviour in the conversion.
int MIO_JSON_NumberToInt(double value);
