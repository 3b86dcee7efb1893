# SPDX-License-Identifier: MIT
"""Writes one manual page per function of the public header, from Doxygen's XML.

man_pages.py XML-FILE OUTPUT-FOLDER VERSION DATE
"""
import pathlib
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

HEADER = "rtsps_server_api.h"


def escaped(line):
    """A line for roff, which reads backslashes and leading dots or quotes as commands."""
    line = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + line if line.startswith((".", "'")) else line


def prose(text):
    """Lines of running text; none for blanks alone."""
    return [escaped(line) for line in textwrap.wrap(text.strip(), 70, break_on_hyphens=False)]


def content(element):
    return "".join(element.itertext())


def listing(element):
    """A drawing or an example, line by line."""
    for space in element.iter("sp"):
        space.text = " "
    return [".PP", ".nf", *(escaped(content(line)) for line in element.iter("codeline")), ".fi"]


def bullets(element):
    lines = []
    for item in element.findall("listitem"):
        lines += [".IP \\(bu 2", *prose(content(item))]
    return lines


def parameters(element):
    lines = [".SH PARAMETERS"]
    for item in element.findall("parameteritem"):
        name = item.find("parameternamelist/parametername")
        lines += [".TP", f".IR {name.text} \" ({name.get('direction').replace('inout', 'in, out')})\"",
                  *prose(content(item.find("parameterdescription")))]
    return lines


def result(element):
    lines = sum((paragraph(para) for para in element.findall("para")), [])
    return [".SH RETURN VALUE", *lines[1:]]  # a heading begins a paragraph


PARTS = {"programlisting": listing, "itemizedlist": bullets, "parameterlist": parameters,
         "simplesect": result}


def paragraph(para):
    """A paragraph, and after it what Doxygen puts inside it."""
    lines = []
    text = para.text or ""

    def flush():
        words = prose(text)
        return [".PP", *words] if words else []

    for child in para:
        if child.tag in PARTS:
            lines += flush() + PARTS[child.tag](child)
            text = child.tail or ""
        else:
            text += content(child) + (child.tail or "")
    return lines + flush()


def synopsis(function):
    arguments = [f"{content(param.find('type'))} {param.findtext('declname')}".replace("* ", "*")
                 for param in function.findall("param") if param.find("declname") is not None]
    declaration = (f"{content(function.find('type'))} {function.findtext('name')}"
                   f"({', '.join(arguments) or 'void'});")
    lines = textwrap.wrap(declaration, 70, subsequent_indent=" " * 8)
    return [".SH SYNOPSIS", ".nf", f".B #include <{HEADER}>", ".PP",
            *(f'.B "{escaped(line)}"' for line in lines), ".fi"]


def page(function, names, version, date):
    name = function.findtext("name")
    summary = content(function.find("briefdescription")).strip()
    lines = [f".TH {name} 3 {date} \"rtspserver {version}\" \"rtspserver manual\"",
             ".nh",  # names are never broken
             ".ad l",
             ".SH NAME", f"{name} \\- {escaped(summary[0].lower() + summary[1:].rstrip('.'))}",
             *synopsis(function),
             ".PP", "Compile and link with",
             ".BR \"pkg\\-config \\-\\-cflags \\-\\-libs rtspserver\" .",
             ".SH DESCRIPTION", *prose(summary)]
    for para in function.findall("detaileddescription/para"):
        lines += paragraph(para)
    others = [other for other in names if other != name]
    lines += [".SH SEE ALSO", *(f".BR {other} (3) ," for other in others[:-1]),
              f".BR {others[-1]} (3)",
              ".PP", "The header", f".I {HEADER}", "describes the records and the order of calls."]
    return "\n".join(lines) + "\n"


def main():
    source, folder, version, date = sys.argv[1:]
    functions = [member for member in ElementTree.parse(source).iter("memberdef")
                 if member.get("kind") == "function"]
    names = sorted(function.findtext("name") for function in functions)
    for function in functions:
        target = pathlib.Path(folder, function.findtext("name") + ".3")
        target.write_text(page(function, names, version, date), encoding="utf-8")


if __name__ == "__main__":
    main()
