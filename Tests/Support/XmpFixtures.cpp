#include "Support/XmpFixtures.h"

namespace vantelor::test::XmpFixtures {

QByteArray lightroom(std::optional<int> rating, std::optional<QString> label, int padding)
{
    QByteArray x = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
                   "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"Adobe XMP Core 7.0-c000 1.000000, 0000/00/00-00:00:00        \">\n"
                   " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
                   "  <rdf:Description rdf:about=\"\"\n"
                   "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
                   "    xmlns:exif=\"http://ns.adobe.com/exif/1.0/\"\n"
                   "    xmlns:dc=\"http://purl.org/dc/elements/1.1/\"\n"
                   "    xmlns:crs=\"http://ns.adobe.com/camera-raw-settings/1.0/\"\n"
                   "   xmp:CreatorTool=\"NIKON Z 6_2 Ver.01.60\"\n"
                   "   xmp:ModifyDate=\"2024-05-11T18:22:07.31\"";
    if (rating)
        x += "\n   xmp:Rating=\"" + QByteArray::number(*rating) + '"';
    if (label)
        x += "\n   xmp:Label=\"" + label->toUtf8().replace('&', "&amp;").replace('"', "&quot;") + '"';
    x += "\n   exif:FNumber=\"28/10\"\n"
         "   crs:Version=\"16.3\"\n"
         "   crs:Exposure2012=\"+0.35\"\n"
         "   crs:HasSettings=\"True\">\n"
         "   <dc:subject>\n"
         "    <rdf:Bag>\n"
         "     <rdf:li>boda</rdf:li>\n"
         "     <rdf:li>Sevilla &amp; Cádiz</rdf:li>\n"
         "    </rdf:Bag>\n"
         "   </dc:subject>\n"
         "   <crs:ToneCurvePV2012>\n"
         "    <rdf:Seq>\n"
         "     <rdf:li>0, 0</rdf:li>\n"
         "     <rdf:li>255, 255</rdf:li>\n"
         "    </rdf:Seq>\n"
         "   </crs:ToneCurvePV2012>\n"
         "  </rdf:Description>\n"
         " </rdf:RDF>\n"
         "</x:xmpmeta>\n";
    for (int i = 0; i < padding / 100; ++i)
        x += QByteArray(99, ' ') + '\n';
    x += "<?xpacket end=\"w\"?>";
    return x;
}

QByteArray captureOne(std::optional<int> rating, std::optional<QString> label)
{
    QByteArray x = "<?xml version='1.0' encoding='UTF-8' standalone='yes'?>\n"
                   "<x:xmpmeta xmlns:x='adobe:ns:meta/' x:xmptk='Image::ExifTool 12.40'>\n"
                   "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
                   "\n"
                   " <rdf:Description rdf:about=''\n"
                   "  xmlns:exif='http://ns.adobe.com/exif/1.0/'>\n"
                   "  <exif:DateTimeOriginal>2024-05-11T18:22:07</exif:DateTimeOriginal>\n"
                   "  <exif:ISOSpeedRatings>\n"
                   "   <rdf:Seq>\n"
                   "    <rdf:li>400</rdf:li>\n"
                   "   </rdf:Seq>\n"
                   "  </exif:ISOSpeedRatings>\n"
                   " </rdf:Description>\n"
                   "\n"
                   " <rdf:Description rdf:about=''\n"
                   "  xmlns:xmp='http://ns.adobe.com/xap/1.0/'>\n";
    if (rating)
        x += "  <xmp:Rating>" + QByteArray::number(*rating) + "</xmp:Rating>\n";
    if (label)
        x += "  <xmp:Label>" + label->toUtf8().replace('&', "&amp;").replace('<', "&lt;") + "</xmp:Label>\n";
    x += "  <xmp:CreatorTool>Capture One 23 Macintosh</xmp:CreatorTool>\n"
         " </rdf:Description>\n"
         "</rdf:RDF>\n"
         "</x:xmpmeta>\n";
    return x;
}

QByteArray darktable(std::optional<int> rating, std::optional<QString> label)
{
    QByteArray x = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                   "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"XMP Core 4.4.0-Exiv2\">\n"
                   " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
                   "  <rdf:Description rdf:about=\"\"\n"
                   "    xmlns:exif=\"http://ns.adobe.com/exif/1.0/\"\n"
                   "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
                   "    xmlns:xmpMM=\"http://ns.adobe.com/xap/1.0/mm/\"\n"
                   "    xmlns:darktable=\"http://darktable.sf.net/\"\n"
                   "   exif:DateTimeOriginal=\"2024:05:11 18:22:07\"\n";
    if (rating)
        x += "   xmp:Rating=\"" + QByteArray::number(*rating) + "\"\n";
    if (label)
        x += "   xmp:Label=\"" + label->toUtf8() + "\"\n";
    x += "   xmpMM:DerivedFrom=\"DSC_0001.NEF\"\n"
         "   darktable:xmp_version=\"5\"\n"
         "   darktable:iop_order_version=\"4\">\n"
         "   <darktable:colorlabels>\n"
         "    <rdf:Seq>\n"
         "     <rdf:li>0</rdf:li>\n"
         "    </rdf:Seq>\n"
         "   </darktable:colorlabels>\n"
         "   <darktable:history>\n"
         "    <rdf:Seq>\n"
         "     <rdf:li\n"
         "      darktable:num=\"0\"\n"
         "      darktable:operation=\"exposure\"\n"
         "      darktable:params=\"00000000000080b90000003f00004842000080c0\"/>\n"
         "    </rdf:Seq>\n"
         "   </darktable:history>\n"
         "  </rdf:Description>\n"
         " </rdf:RDF>\n"
         "</x:xmpmeta>\n";
    return x;
}

QByteArray digikam(std::optional<int> rating, std::optional<QString> label, bool crlf)
{
    QByteArray x = "\xEF\xBB\xBF<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
                   "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"XMP Core 4.4.0-Exiv2\">\n"
                   " <!-- written by digiKam 8.2.0 -->\n"
                   " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
                   "  <rdf:Description rdf:about=\"\"\n"
                   "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
                   "    xmlns:digiKam=\"http://www.digikam.org/ns/1.0/\"\n"
                   "    xmlns:dc=\"http://purl.org/dc/elements/1.1/\"\n";
    if (rating)
        x += "   xmp:Rating=\"" + QByteArray::number(*rating) + "\"\n";
    if (label)
        x += "   xmp:Label=\"" + label->toUtf8() + "\"\n";
    x += "   digiKam:ColorLabel=\"1\"\n"
         "   digiKam:PickLabel=\"3\">\n"
         "   <digiKam:TagsList>\n"
         "    <rdf:Seq>\n"
         "     <rdf:li>Viajes/Portugal</rdf:li>\n"
         "    </rdf:Seq>\n"
         "   </digiKam:TagsList>\n"
         "   <dc:title>\n"
         "    <rdf:Alt>\n"
         "     <rdf:li xml:lang=\"x-default\">Atardecer en Lisboa</rdf:li>\n"
         "    </rdf:Alt>\n"
         "   </dc:title>\n"
         "  </rdf:Description>\n"
         " </rdf:RDF>\n"
         "</x:xmpmeta>\n";
    x += QByteArray(60, ' ') + '\n';
    x += "<?xpacket end=\"w\"?>";
    if (crlf)
        x.replace("\n", "\r\n");
    return x;
}

QByteArray sized(int bytes, int rating, const QString& label)
{
    QByteArray x = lightroom(rating, label, 0);
    // Develop settings as Camera Raw writes them, until the file reaches the size.
    const qsizetype insertAt = x.indexOf("   crs:HasSettings");
    QByteArray settings;
    for (int i = 0; settings.size() + x.size() < bytes; ++i)
        settings += "   crs:LocalSetting" + QByteArray::number(i) + "=\"+0." + QByteArray::number(i % 97) + "\"\n";
    x.insert(insertAt, settings);
    return x;
}

} // namespace vantelor::test::XmpFixtures
