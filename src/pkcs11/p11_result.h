// What the operations on PKCS#11 modules answer.
#pragma once

namespace crv {

/// X(name, number, text for the user).
#define P11_RESULTS(X)                                                  \
    X(kP11ModuleError, 1, "Błąd biblioteki PKCS#11")                    \
    X(kP11Ok, 0, "OK")                                                  \
    X(kP11NoMemory, -1, "Brak pamięci")                                 \
    X(kP11LoadFailed, -2, "Błąd ładowania biblioteki")                  \
    X(kP11NoInterface, -3, "Biblioteka nie zawiera interfejsu PKCS#11") \
    X(kP11BadSlot, -4, "Niewłaściwy indeks urządzenia")                 \
    X(kP11SessionOpen, -5, "Sesja była już otwarta")                    \
    X(kP11NoSession, -6, "Sesja nie była otwarta")                      \
    X(kP11NotFound, -7, "Obiekt nie znaleziony")                        \
    X(kP11TooMany, -8, "Zbyt dużo obiektów")                            \
    X(kP11NoAttribute, -9, "Nie znaleziono atrybutu")                   \
    X(kP11NoParameters, -10, "Brak wymaganych parametrów")              \
    X(kP11NoToken, -11, "Brak tokenu urządzeniu")                       \
    X(kP11AlreadyInitialised, -12, "Obiekt był już zainicjowany")       \
    X(kP11BadData, -14, "Błędny format danych")

/// kP11ModuleError: the module's own value is kept beside it (PKCS11Device::lastRv).
#define CRV_P11_RESULT(name, number, text) name = (number),
enum P11Result : int { P11_RESULTS(CRV_P11_RESULT) };
#undef CRV_P11_RESULT

/// The text of a result; "Nierozpoznany błąd" for any other number.
[[nodiscard]] const char* getP11DErrTxt(int code) noexcept;

}  // namespace crv
