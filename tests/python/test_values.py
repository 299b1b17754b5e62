"""Values between Python and the library: text, byte-holding text, arrays, empty, numbers and
booleans, and by-reference arguments."""
import zlib

import pytest
import zrkkvl

ALL_BYTES = bytes(range(256))


def test_every_byte_round_trips_through_the_code_page():
    text = zrkkvl.from_bytes(ALL_BYTES)
    assert len(text) == 256
    assert text[:128] == ALL_BYTES[:128].decode("ascii")
    assert text[0x80] == "\u20ac" and text[0x9f] == "\u0178" and text[0xff] == "\xff"
    assert zrkkvl.to_bytes(text) == ALL_BYTES
    # A character the code page lacks becomes "?".
    assert zrkkvl.to_bytes("a\u4e2db") == b"a?b"


def test_byte_holding_text_crosses_files_and_zlib_as_one_character_per_byte(kvn, tmp_path):
    text = zrkkvl.from_bytes(ALL_BYTES)
    path = tmp_path / "bytes.bin"
    kvn.WriteFile(str(path), text)
    assert path.read_bytes() == ALL_BYTES + b"\r\n"

    # Every byte but the line ends, read back as the text it was written from.
    line = bytes(b for b in range(0x21, 256))
    path.write_bytes(line)
    assert kvn.ReadFileToString(str(path)) == zrkkvl.from_bytes(line)

    packed = kvn.CompressString(text)
    assert zlib.decompress(zrkkvl.to_bytes(packed)) == ALL_BYTES
    assert kvn.DecompressString(packed, 256) == text
    assert kvn.DecompressString(zrkkvl.from_bytes(zlib.compress(ALL_BYTES)), 256) == text

    # Decimal and hexadecimal forms of every byte, each followed by "/".
    path.write_bytes(ALL_BYTES)
    decimal = "".join(f"{b}/" for b in ALL_BYTES)
    assert kvn.ReadBinaryFileToString(str(path)) == decimal
    assert kvn.BinRead(str(path)).rstrip(" ") == decimal
    assert kvn.HexRead(str(path)).rstrip(" ").upper() == "".join(f"{b:X}/" for b in ALL_BYTES)


def test_text_beyond_the_code_page_and_lone_surrogates_stay_themselves(kvn):
    for text in ["Grüße €", "\U0001f600 emoji", "lone \ud800 half", "\udfff"]:
        result, buf, length, add = kvn.BuildString("", 0, text)
        assert buf[:length] == text and add == text


def test_arrays_are_lists_and_lists_pass_as_arrays(kvn, tmp_path):
    path = tmp_path / "lines.txt"
    kvn.WriteFile(str(path), ["alpha", "", "gamma"])
    assert path.read_bytes() == b"alpha\r\n\r\ngamma\r\n"
    # Non-empty lines, then one empty element.
    assert kvn.ReadFile(str(path)) == ["alpha", "gamma", ""]
    kvn.AppendFile(str(path), ("delta",))
    assert kvn.ReadFile(str(path)) == ["alpha", "gamma", "delta", ""]

    ini = tmp_path / "a.ini"
    ini.write_bytes(b"[one]\r\nk=v\r\n[two]\r\n")
    assert kvn.GetAllIniSections(str(ini)) == ["one", "two", ""]
    assert kvn.GetIniSection("one", str(ini)) == ["k=v", ""]
    assert kvn.ParseIniKey("name=value", True) == ["name", "value"]

    cases = [("b", ["a", "b"], True), (2, [1, "2"], True), ("x", ["xy", "y"], False),
             ("z", [], False), (True, ["True"], True)]
    for value, array, found in cases:
        assert kvn.IsInArray(value, array) is found, (value, array)


def test_empty_is_none_both_ways(kvn, tmp_path):
    missing = str(tmp_path / "missing.ini")
    assert kvn.GetIniSection("s", missing) is None
    # None passed for text is empty text.
    assert kvn.GetIniKey(None, None, missing) == ""
    assert kvn.call("GetIniSection", "s", missing) is None
    result, buf, length, add = kvn.BuildString(None, 0, None)
    assert (result, length, add) == (None, 0, "")


def test_numbers_and_booleans_keep_their_kinds(kvn):
    cases = [
        (kvn.isIpAdd("10.0.0.1"), True),
        (kvn.isIpAdd("10.0.0"), False),
        (kvn.CheckAlphaNumeric("abc 12"), True),
        (kvn.call("CheckAlphaNumeric", "a-b"), False),
        (kvn.IsVista(), False),
        (kvn.ParseIniKey("k=7"), "7"),
        (kvn.call("BuildString", "", 0, "xy")[2], 2),
    ]
    for got, expected in cases:
        assert type(got) is type(expected) and got == expected
    assert kvn.MONITOR is False
    kvn.MONITOR = True
    assert kvn.call("monitor") is True
    kvn.MONITOR = False
    kvn.CompressedSize = 1234
    assert kvn.CompressedSize == 1234 and kvn.call("CompressedSize") == 1234
    kvn.call("OriginalSize", 99)
    assert kvn.OriginalSize == 99
    # A whole number past 32 bits does not fit a 32-bit argument; a float rounds half to even.
    with pytest.raises(zrkkvl.Failure) as e:
        kvn.BuildString("", 2**40, "x")
    assert e.value.number == 6
    assert kvn.BuildString("", 2.5, "x")[2] == 3
    # A 64-bit address takes every whole number and a float in its range.
    for address in [2**63, -2**63 - 1, 1e300, float("nan")]:
        with pytest.raises(zrkkvl.Failure) as e:
            kvn.ReadLong64(0, address)
        assert e.value.number == 6, address
    assert kvn.ReadLong64(0, 2**63 - 1) == 0 and kvn.ReadLong64(0, 4096.0) == 0
    # Bytes are no text: they pass through from_bytes.
    with pytest.raises(zrkkvl.Failure) as e:
        kvn.CompressString(b"abc")
    assert e.value.number == 13 and "from_bytes" in e.value.description


def test_by_reference_arguments_come_back_after_the_result(kvn, tmp_path):
    ini = tmp_path / "r.ini"
    ini.write_bytes(b"[gone]\r\nk=v\r\n[kept]\r\nk=v\r\n")
    packed = tmp_path / "p.bini"
    plain = tmp_path / "p.ini"
    plain.write_bytes(b"[s]\r\nk=v\r\n")
    kvn.CompressBINI(str(plain), "ini")
    assert packed.exists()
    cases = [
        (lambda: kvn.BuildString("ab", 2, "cd")[2:], (4, "cd")),
        (lambda: kvn.ClearIniSection("gone", str(ini)), (None, "gone", str(ini))),
        (lambda: kvn.call("ClearIniSection", "x", str(ini)), (None, "x", str(ini))),
        (lambda: kvn.DecompressBINI(str(packed), "ini"), (True, "ini")),
        (lambda: kvn.DecompressBINI(str(tmp_path / "none.bini")), (False, None)),
    ]
    for call, expected in cases:
        assert call() == expected
    assert ini.read_bytes() == b"[kept]\r\nk=v\r\n"
    assert plain.read_bytes() == b"[s]\r\nk=v\r\n"
    # The growing buffer and its used length, as a loop of appends keeps them.
    buf, length = "", 0
    for piece in ["one", "two", "three"]:
        _, buf, length, _ = kvn.ConcatStr(buf, length, piece)
    assert buf[:length] == "onetwothree"
