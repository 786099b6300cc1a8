"""PKCS#11 2.40 from Python: what the tests need of it."""
import ctypes
from ctypes import POINTER, Structure, byref, c_char_p, c_ubyte, c_ulong, c_void_p

NAMES = """Initialize Finalize GetInfo GetFunctionList GetSlotList GetSlotInfo GetTokenInfo GetMechanismList GetMechanismInfo InitToken
InitPIN SetPIN OpenSession CloseSession CloseAllSessions GetSessionInfo GetOperationState SetOperationState Login Logout CreateObject
CopyObject DestroyObject GetObjectSize GetAttributeValue SetAttributeValue FindObjectsInit FindObjects FindObjectsFinal EncryptInit
Encrypt EncryptUpdate EncryptFinal DecryptInit Decrypt DecryptUpdate DecryptFinal DigestInit Digest DigestUpdate DigestKey DigestFinal
SignInit Sign SignUpdate SignFinal SignRecoverInit SignRecover VerifyInit Verify VerifyUpdate VerifyFinal VerifyRecoverInit
VerifyRecover DigestEncryptUpdate DecryptDigestUpdate SignEncryptUpdate DecryptVerifyUpdate GenerateKey GenerateKeyPair WrapKey
UnwrapKey DeriveKey SeedRandom GenerateRandom GetFunctionStatus CancelFunction WaitForSlotEvent""".split()

OK, SLOT_ID_INVALID, FUNCTION_FAILED, ARGUMENTS_BAD, ATTRIBUTE_SENSITIVE, ATTRIBUTE_TYPE_INVALID = 0, 3, 6, 7, 0x11, 0x12
DATA_LEN_RANGE, DEVICE_REMOVED, FUNCTION_NOT_SUPPORTED, KEY_HANDLE_INVALID, KEY_TYPE_INCONSISTENT = 0x21, 0x32, 0x54, 0x60, 0x63
KEY_FUNCTION_NOT_PERMITTED, MECHANISM_INVALID, MECHANISM_PARAM_INVALID, OBJECT_HANDLE_INVALID = 0x68, 0x70, 0x71, 0x82
OPERATION_ACTIVE, OPERATION_NOT_INITIALIZED, PIN_INCORRECT, PIN_INVALID, PIN_LEN_RANGE = 0x90, 0x91, 0xA0, 0xA1, 0xA2
SESSION_HANDLE_INVALID, SESSION_PARALLEL_NOT_SUPPORTED, SESSION_READ_ONLY, SIGNATURE_INVALID = 0xB3, 0xB4, 0xB5, 0xC0
TOKEN_NOT_PRESENT, USER_ALREADY_LOGGED_IN, USER_NOT_LOGGED_IN, USER_TYPE_INVALID = 0xE0, 0x100, 0x101, 0x103
RANDOM_SEED_NOT_SUPPORTED, BUFFER_TOO_SMALL, NOT_INITIALIZED, ALREADY_INITIALIZED = 0x120, 0x150, 0x190, 0x191
CERTIFICATE, PUBLIC_KEY, PRIVATE_KEY = 1, 2, 3


class Attribute(Structure):
    _fields_ = [("type", c_ulong), ("value", c_void_p), ("length", c_ulong)]


class Mechanism(Structure):
    _fields_ = [("type", c_ulong), ("parameter", c_void_p), ("length", c_ulong)]


class List(Structure):
    _fields_ = [("version", c_ubyte * 2)] + [(name, ctypes.CFUNCTYPE(c_ulong)) for name in NAMES]


def mechanism(kind, *numbers):
    values = (c_ulong * len(numbers))(*numbers)
    made = Mechanism(kind, ctypes.addressof(values) if numbers else None, ctypes.sizeof(values))
    made.kept = values
    return made


class Module:
    """Each call answers its CKR_; the others raise AssertionError for any but OK."""

    def __init__(self, path):
        listed = POINTER(List)()
        assert ctypes.CDLL(path).C_GetFunctionList(byref(listed)) == OK
        self.list = listed.contents
        for name in NAMES:
            setattr(self, name, self._call(getattr(self.list, name)))

    @staticmethod
    def _call(function):
        return lambda *args: function(*(c_ulong(a) if isinstance(a, int) else a for a in args))

    @staticmethod
    def must(rv):
        assert rv == OK, hex(rv)

    def slots(self, present=1):
        count = c_ulong()
        self.must(self.GetSlotList(present, None, byref(count)))
        slots = (c_ulong * max(count.value, 1))()
        self.must(self.GetSlotList(present, slots, byref(count)))
        return list(slots[:count.value])

    def labels(self):
        """Slots with a token, by the label."""
        found = {}
        for slot in self.slots():
            info = ctypes.create_string_buffer(512)
            self.must(self.GetTokenInfo(slot, info))
            found[info.raw[:32].decode().strip()] = slot
        return found

    def open(self, slot, write=False):
        session = c_ulong()
        self.must(self.OpenSession(slot, 6 if write else 4, None, None, byref(session)))
        return session.value

    def login(self, session, pin):
        return self.Login(session, 1, c_char_p(pin), len(pin))

    def find(self, session, kind):
        wanted = c_ulong(kind)
        self.must(self.FindObjectsInit(session, byref(Attribute(0, ctypes.addressof(wanted), 8)), 1))
        found, count = (c_ulong * 16)(), c_ulong()
        self.must(self.FindObjects(session, found, 16, byref(count)))
        self.must(self.FindObjectsFinal(session))
        return list(found[:count.value])

    def attribute(self, session, handle, kind, room=4096):
        buffer = ctypes.create_string_buffer(room)
        asked = Attribute(kind, ctypes.addressof(buffer), room)
        rv = self.GetAttributeValue(session, handle, byref(asked), 1)
        return (rv, buffer.raw[:asked.length] if rv == OK else asked.length)

    def out(self, call, *args, room=4096):
        buffer, length = ctypes.create_string_buffer(room), c_ulong(room)
        rv = call(*args, buffer, byref(length))
        return (rv, buffer.raw[:length.value] if rv == OK else length.value)

    def sign(self, session, key, how, data):
        self.must(self.SignInit(session, byref(how), key))
        rv, made = self.out(self.Sign, session, c_char_p(data), len(data))
        self.must(rv)
        return made

    def verify(self, session, key, how, data, signature):
        self.must(self.VerifyInit(session, byref(how), key))
        return self.Verify(session, c_char_p(data), len(data), c_char_p(signature), len(signature))
